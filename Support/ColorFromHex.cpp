#include "Support/ColorFromHex.h"

#include <QTextBoundaryFinder>

namespace {

qsizetype characterCount(const QString &text) {
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    qsizetype count = 0;
    while (finder.toNextBoundary() >= 0)
        ++count;
    return count;
}

int hexDigit(QChar character) {
    const auto unit = character.unicode();
    if (unit >= u'0' && unit <= u'9')
        return unit - u'0';
    if (unit >= u'A' && unit <= u'F')
        return unit - u'A' + 10;
    return -1;
}

/// Scans a hexadecimal number: a leading "0X" is a prefix, and as many digits as there are count. Without any
/// digit at the start, also behind a blank, the value stays 0.
quint64 scanHex(QStringView text) {
    if (text.startsWith(u"0X"))
        text = text.mid(2);
    quint64 value = 0;
    for (const QChar character : text) {
        const int digit = hexDigit(character);
        if (digit < 0)
            break;
        value = value * 16 + static_cast<quint64>(digit);
    }
    return value;
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
