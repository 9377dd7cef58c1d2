#include "Platform/ImageBounds.h"

#include "Formats/Text.h"

#include <QXmlStreamReader>
#include <QtEndian>

#include <algorithm>
#include <array>

namespace {

// Each is several times what a logo needs. The costs of a drawing: rules times elements times depth, and the
// square of the points of paths. The parser takes the square of a tag's attributes.
constexpr qsizetype maxDrawingBytes = 512 * 1024;
constexpr int maxAttributes = 200; // in one tag
constexpr int maxDepth = 64;
constexpr qsizetype maxSelectors = 200;
constexpr qsizetype maxStyleLetters = 32 * 1024;

// What is drawn, by the time it takes: a number of a path is 1.
constexpr qsizetype maxWork = 8000;
constexpr qsizetype workOfElement = 8;
constexpr qsizetype workOfLetter = 80; // each may have a font of its own

constexpr int maxSide = 8192;
constexpr qint64 maxPixels = 4096LL * 4096LL;
constexpr qint64 maxScans = 100;
constexpr qint64 maxPixelsTimesScans = 8 * maxPixels;

bool hasFewAttributes(const QByteArray &svg) {
    int attributes = 0;
    for (const char byte : svg) {
        if (byte == '<')
            attributes = 0;
        else if (byte == '=' && ++attributes > maxAttributes)
            return false;
    }
    return true;
}

// Elements that refer to something outside, run, or multiply what they hold.
bool isForbidden(QStringView element) {
    constexpr std::array forbidden { u"image", u"foreignObject", u"script", u"use", u"font", u"font-face-uri",
        u"filter", u"pattern", u"marker" };
    return element.startsWith(u"animate")
        || std::any_of(
            forbidden.begin(), forbidden.end(), [element](const auto *each) { return element == each; });
}

qsizetype numbersIn(QStringView path) {
    qsizetype numbers = 0;
    bool isInNumber = false;
    for (const QChar character : path) {
        const bool isPart = character.isDigit() || character == u'.';
        numbers += isPart && !isInNumber ? 1 : 0;
        // "1.5.5" are two numbers.
        numbers += isInNumber && character == u'.' ? 1 : 0;
        isInNumber = isPart;
    }
    return numbers;
}

bool isText(QStringView element) {
    return element == u"text" || element == u"tspan" || element == u"textArea" || element == u"tref";
}

// A line of short dashes is thousands of lines. Escapes could hide them, or an import.
bool isPlainStyle(QStringView style) {
    constexpr QStringView dashes = u"stroke-dasharray";
    for (auto next = style.indexOf(dashes, 0, Qt::CaseInsensitive); next >= 0;
         next = style.indexOf(dashes, 0, Qt::CaseInsensitive)) {
        style = style.mid(next + dashes.size()).trimmed();
        if (!style.startsWith(u':') || !style.mid(1).trimmed().startsWith(u"none"))
            return false;
    }
    return !style.contains(u'\\') && !style.contains(u"@import");
}

/// Counts what a drawing consists of, read the way its decoder reads it.
class DrawingCount {
public:
    bool add(const QXmlStreamReader &reader) {
        switch (reader.tokenType()) {
        case QXmlStreamReader::StartElement:
            return addElement(reader);
        case QXmlStreamReader::EndElement:
            --depth_;
            isInStyle_ = false;
            openTexts_ -= isText(reader.name()) ? 1 : 0;
            return true;
        case QXmlStreamReader::Characters:
            return addText(reader.text());
        case QXmlStreamReader::DTD:
            return reader.entityDeclarations().isEmpty() && reader.notationDeclarations().isEmpty();
        case QXmlStreamReader::ProcessingInstruction:
        case QXmlStreamReader::EntityReference:
        case QXmlStreamReader::Invalid:
            return false;
        default:
            return true;
        }
    }

private:
    bool addElement(const QXmlStreamReader &reader) {
        isInStyle_ = reader.name() == u"style";
        openTexts_ += isText(reader.name()) ? 1 : 0;
        work_ += workOfElement;
        const auto attributes = reader.attributes();
        for (const auto &attribute : attributes) {
            if (attribute.name() == u"d" || attribute.name() == u"points")
                work_ += numbersIn(attribute.value());
            if (attribute.name() == u"stroke-dasharray" && attribute.value().trimmed() != u"none")
                return false;
            if (attribute.name() == u"style" && !isPlainStyle(attribute.value()))
                return false;
        }
        return ++depth_ <= maxDepth && work_ <= maxWork && !isForbidden(reader.name());
    }

    bool addText(QStringView text) {
        if (!isInStyle_) {
            work_ += openTexts_ > 0 ? workOfLetter * text.size() : 0;
            return work_ <= maxWork;
        }
        style_ += text.size();
        selectors_ += text.count(u'{') + text.count(u',');
        return style_ <= maxStyleLetters && selectors_ <= maxSelectors && isPlainStyle(text);
    }

    int depth_ = 0;
    int openTexts_ = 0;
    bool isInStyle_ = false;
    qsizetype work_ = 0;
    qsizetype style_ = 0;
    qsizetype selectors_ = 0;
};

bool isUtf8(const QXmlStreamReader &reader) {
    const auto declared = reader.documentEncoding();
    return declared.isEmpty() || declared.compare(u"utf-8", Qt::CaseInsensitive) == 0;
}

} // namespace

bool ImageBounds::allowDrawing(const QByteArray &svg) {
    // Any other encoding than the one that is looked for here is one that the decoder may find by itself.
    if (svg.size() > maxDrawingBytes || svg.contains('\0')
        || !Formats::isUtf8({ svg.constData(), static_cast<std::size_t>(svg.size()) })
        || !hasFewAttributes(svg))
        return false;
    QXmlStreamReader reader(svg);
    DrawingCount count;
    while (!reader.atEnd()) {
        reader.readNext();
        if (!isUtf8(reader) || !count.add(reader))
            return false;
    }
    return !reader.hasError();
}

bool ImageBounds::allowPixels(const QByteArray &bytes, const QSize &pixels) {
    const qint64 scans = bytes.startsWith("\xff\xd8") ? bytes.count("\xff\xda") : 1;
    const qint64 count = qint64(pixels.width()) * pixels.height();
    return !pixels.isEmpty() && pixels.width() <= maxSide && pixels.height() <= maxSide && count <= maxPixels
        && scans <= maxScans && scans * count <= maxPixelsTimesScans;
}

QByteArray ImageBounds::withoutExtras(const QByteArray &png) {
    constexpr qsizetype signature = 8;
    constexpr qsizetype lengthAndType = 8;
    constexpr qsizetype checksum = 4;
    constexpr std::array kept { "IHDR", "PLTE", "tRNS", "IDAT", "IEND" };
    QByteArray bare = png.left(signature);
    qsizetype position = signature;
    while (png.size() - position >= lengthAndType + checksum) {
        const auto length = qFromBigEndian<quint32>(png.constData() + position);
        if (length > png.size() - position - lengthAndType - checksum)
            break;
        const auto chunk = png.mid(position, lengthAndType + qsizetype(length) + checksum);
        const auto type = chunk.mid(4, 4);
        if (std::any_of(kept.begin(), kept.end(), [&type](const char *each) { return type == each; }))
            bare += chunk;
        position += chunk.size();
    }
    return bare;
}
