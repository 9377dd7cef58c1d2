#include "Support/ColorFromHex.h"

#include <QTextBoundaryFinder>

#include <algorithm>

namespace {

qsizetype characterCount(const QString &text) {
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    qsizetype count = 0;
    while (finder.toNextBoundary() >= 0)
        ++count;
    return count;
}

bool isHexDigit(QChar character) {
    return (character >= u'0' && character <= u'9') || (character >= u'A' && character <= u'F');
}

/// Scans a hexadecimal number: a leading "0X" is a prefix, and as many digits as there are count. Without any
/// digit at the start, also behind a blank, the value is 0.
quint64 scanHex(QStringView text) {
    if (text.startsWith(u"0X"))
        text = text.mid(2);
    const auto end = std::find_if_not(text.begin(), text.end(), isHexDigit);
    return text.left(end - text.begin()).toULongLong(nullptr, 16);
}

} // namespace

QColor colorFromHex(const QString &text) {
    auto digits = text.trimmed().toUpper();
    // One "#" only, deliberately: "##2A292" has 6 characters left, begins with no digit, and is black.
    if (digits.startsWith(u'#'))
        digits.remove(0, 1);
    constexpr qsizetype expectedCharacters = 6;
    if (characterCount(digits) != expectedCharacters)
        return QColor::fromRgbF(0.5F, 0.5F, 0.5F);

    const auto value = scanHex(digits);
    const auto component
        = [value](int shift) { return static_cast<float>((value >> shift) & 0xff) / 255.0F; };
    return QColor::fromRgbF(component(16), component(8), component(0), 1.0F);
}
