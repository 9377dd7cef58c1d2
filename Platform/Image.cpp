#include "Platform/Image.h"

#include "Formats/File.h"
#include "Platform/Bundle.h"

#include <QBuffer>
#include <QFile>
#include <QImage>
#include <QImageReader>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace {

// A logo of more pixels than this a side is refused before it is decoded.
constexpr int largestSide = 8192;
constexpr qint64 mostPixels = 4096LL * 4096LL;
constexpr int mostMegabytes = 80;

struct Format {
    const char *name;
    bool isVector;
};

// Told by the bytes themselves, never by a name: only these readers are ever tried.
std::optional<Format> formatOf(const QByteArray &bytes) {
    if (bytes.startsWith("\x89PNG\r\n\x1a\n"))
        return Format { "png", false };
    if (bytes.startsWith("\xff\xd8\xff"))
        return Format { "jpeg", false };
    if (bytes.startsWith("GIF87a") || bytes.startsWith("GIF89a"))
        return Format { "gif", false };
    if (bytes.startsWith(QByteArray::fromRawData("\0\0\1\0", 4)))
        return Format { "ico", false };
    if (bytes.startsWith("BM"))
        return Format { "bmp", false };
    const auto start = bytes.left(1024).trimmed();
    if ((start.startsWith('<') || start.startsWith("\xef\xbb\xbf<")) && bytes.contains("<svg"))
        return Format { "svg", true };
    return std::nullopt;
}

// The name of the tag at a place, without its prefix: what stands between the sign and a blank or an end.
QByteArray tagNameAt(const QByteArray &svg, qsizetype sign) {
    auto end = sign + 1;
    while (end < svg.size() && !std::strchr(" \t\r\n/>", svg[end]))
        ++end;
    const auto name = svg.mid(sign + 1, end - sign - 1);
    return name.mid(name.lastIndexOf(':') + 1);
}

// A drawing that declares entities, refers to anything outside itself, runs, or multiplies itself is not
// drawn at all.
bool isHarmlessTag(const QByteArray &name) {
    constexpr std::array forbidden { "!ENTITY", "?xml-stylesheet", "image", "foreignObject", "script",
        "use" };
    return !name.startsWith("animate")
        && std::find(forbidden.begin(), forbidden.end(), name) == forbidden.end();
}

// Tags are looked for byte by byte. That is right only where every byte below 128 is the character it seems.
bool isReadAsItSeems(const QByteArray &svg) {
    const auto declaration = svg.left(svg.indexOf("?>")).toLower();
    constexpr std::array encodings { "utf-8", "us-ascii", "iso-8859-1" };
    return !declaration.contains("encoding")
        || std::any_of(encodings.begin(), encodings.end(),
            [&declaration](const char *encoding) { return declaration.contains(encoding); });
}

bool isSelfContained(const QByteArray &svg) {
    constexpr qsizetype largestDrawing = 1024 * 1024;
    if (svg.size() > largestDrawing || svg.contains("@import") || !isReadAsItSeems(svg))
        return false;
    for (auto sign = svg.indexOf('<'); sign >= 0; sign = svg.indexOf('<', sign + 1)) {
        if (!isHarmlessTag(tagNameAt(svg, sign)))
            return false;
    }
    return true;
}

QImage decoded(const QByteArray &bytes, const QByteArray &format, const QSize &scaledSize = {}) {
    QBuffer buffer;
    buffer.setData(bytes);
    QImageReader reader(&buffer, format);
    reader.setAutoDetectImageFormat(false);
    if (scaledSize.isValid())
        reader.setScaledSize(scaledSize);
    return reader.read();
}

} // namespace

std::optional<Image::Representation> Image::representation(const QByteArray &bytes, bool sizeIsKnown) {
    const auto format = formatOf(bytes);
    if (!format || (format->isVector && !isSelfContained(bytes)))
        return std::nullopt;
    if (format->isVector && sizeIsKnown)
        return Representation { bytes, format->name, {}, true };
    QImageReader::setAllocationLimit(mostMegabytes);
    QBuffer buffer;
    buffer.setData(bytes);
    QImageReader reader(&buffer, format->name);
    reader.setAutoDetectImageFormat(false);
    QSize pixels = reader.size();
    if (!pixels.isValid())
        pixels = decoded(bytes, format->name).size();
    if (pixels.isEmpty() || pixels.width() > largestSide || pixels.height() > largestSide
        || qint64(pixels.width()) * pixels.height() > mostPixels)
        return std::nullopt;
    return Representation { bytes, format->name, pixels, format->isVector };
}

std::optional<Image> Image::named(const Bundle &bundle, const QString &name) {
    struct File {
        const char *suffix;
        const char *type;
        int scale;
    };
    constexpr std::array files { File { "", "png", 1 }, File { "@2x", "png", 2 }, File { "@3x", "png", 3 },
        File { "", "jpg", 1 }, File { "", "svg", 1 } };
    Image image;
    for (const auto &file : files) {
        const auto type = QString::fromLatin1(file.type);
        const auto base = name.endsWith(u'.' + type) ? name.chopped(type.size() + 1) : name;
        const auto path = bundle.pathForResource(base + QLatin1String(file.suffix), type);
        const auto bytes = path ? Formats::readFile(QFile::encodeName(*path).toStdString()) : std::nullopt;
        auto found = bytes ? representation(QByteArray::fromStdString(*bytes), !image.size_.isEmpty())
                           : std::nullopt;
        if (!found)
            continue;
        if (image.size_.isEmpty())
            image.size_ = found->pixels / file.scale;
        image.representations_.push_back(std::move(*found));
    }
    if (image.representations_.empty())
        return std::nullopt;
    return image;
}

std::optional<Image> Image::withData(const QByteArray &bytes) {
    auto found = representation(bytes, false);
    if (!found)
        return std::nullopt;
    // A header alone is no picture.
    if (!found->isVector && decoded(bytes, found->format).isNull())
        return std::nullopt;
    Image image;
    image.size_ = found->pixels;
    image.representations_.push_back(std::move(*found));
    return image;
}

QImage Image::scaledToFit(const QSize &box, double scale) const {
    const auto fitted = QSizeF(size_).scaled(QSizeF(box), Qt::KeepAspectRatio) * scale;
    const QSize pixels(std::max(1, static_cast<int>(std::lround(fitted.width()))),
        std::max(1, static_cast<int>(std::lround(fitted.height()))));

    // An exact size first, then the drawing, then the smallest picture that need not be blown up.
    const auto exact = std::find_if(representations_.begin(), representations_.end(),
        [&pixels](const auto &each) { return !each.isVector && each.pixels == pixels; });
    const auto vector = std::find_if(
        representations_.begin(), representations_.end(), [](const auto &each) { return each.isVector; });
    const auto enough = std::find_if(representations_.begin(), representations_.end(),
        [&pixels](const auto &each) { return !each.isVector && each.pixels.width() >= pixels.width(); });

    QImage image;
    if (exact != representations_.end())
        image = decoded(exact->bytes, exact->format);
    else if (vector != representations_.end())
        image = decoded(vector->bytes, vector->format, pixels);
    if (image.isNull()) {
        const auto largest = std::find_if(representations_.rbegin(), representations_.rend(),
            [](const auto &each) { return !each.isVector; });
        if (enough != representations_.end())
            image = decoded(enough->bytes, enough->format);
        else if (largest != representations_.rend())
            image = decoded(largest->bytes, largest->format);
        if (!image.isNull())
            image = image.scaled(pixels, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    }
    image.setDevicePixelRatio(scale);
    return image;
}
