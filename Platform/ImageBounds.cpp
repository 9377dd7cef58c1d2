#include "Platform/ImageBounds.h"

#include <QXmlStreamReader>
#include <QtEndian>

#include <algorithm>
#include <array>

namespace {

// Each is several times what a logo needs. The parser takes the square of a tag's attributes, and the rules
// count times elements times depth. What takes long all the same is given up when it is drawn.
constexpr qsizetype maxDrawingBytes = 512 * 1024;
constexpr int maxAttributes = 200; // in one tag
constexpr int maxDepth = 64;
constexpr qsizetype maxSelectors = 200;
constexpr qsizetype maxStyleLetters = 32 * 1024;
constexpr qsizetype maxLetters = 100; // each may have a font of its own

constexpr int maxSide = 8192;
constexpr qint64 maxPixels = 4096LL * 3072LL;
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

bool isText(QStringView element) {
    return element == u"text" || element == u"tspan" || element == u"textArea" || element == u"tref";
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
        return ++depth_ <= maxDepth && !isForbidden(reader.name());
    }

    bool addText(QStringView text) {
        if (!isInStyle_) {
            letters_ += openTexts_ > 0 ? text.size() : 0;
            return letters_ <= maxLetters;
        }
        style_ += text.size();
        selectors_ += text.count(u'{') + text.count(u',');
        return style_ <= maxStyleLetters && selectors_ <= maxSelectors && !text.contains(u"@import");
    }

    int depth_ = 0;
    int openTexts_ = 0;
    bool isInStyle_ = false;
    qsizetype letters_ = 0;
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
    if (svg.size() > maxDrawingBytes || svg.contains('\0') || !svg.isValidUtf8() || !hasFewAttributes(svg))
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
