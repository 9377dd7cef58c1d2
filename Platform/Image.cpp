#include "Platform/Image.h"

#include "Formats/File.h"
#include "Platform/Bundle.h"
#include "Platform/ImageBounds.h"

#include <QBuffer>
#include <QFile>
#include <QImageReader>
#include <QLoggingCategory>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <ctime>
#include <functional>
#include <future>
#include <system_error>
#include <thread>
#include <utility>

namespace {

Q_LOGGING_CATEGORY(images, "agent.images")

constexpr int maxMegabytes = 80;

// Of a message's picture no more is kept than is ever drawn: a logo is 28 pixels high at scale 1.
constexpr QSize maxKept(2048, 256);

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

QImage decoded(const QByteArray &bytes, const QByteArray &format, const QSize &scaledSize = {}) {
    QBuffer buffer;
    buffer.setData(bytes);
    QImageReader reader(&buffer, format);
    reader.setAutoDetectImageFormat(false);
    if (scaledSize.isValid())
        reader.setScaledSize(scaledSize);
    return reader.read();
}

// A thread that has begun a drawing cannot be stopped.
std::atomic<bool> isDrawing = false;

/// The result of something done with a drawing; nothing when that takes long, or while an earlier one that
/// was given up is still going on. No bound on what a drawing consists of tells how long it takes. Processor
/// time counts, so that a busy machine loses no logo.
template <class Result>
std::optional<Result> inTime(std::function<Result()> work) {
    constexpr std::clock_t maxTime = CLOCKS_PER_SEC * 4 / 10;
    constexpr std::chrono::milliseconds betweenLooks(20);
    if (isDrawing.exchange(true))
        return std::nullopt;
    std::promise<Result> promise;
    auto future = promise.get_future();
    const auto start = std::clock();
    try {
        std::thread([work = std::move(work), promise = std::move(promise)]() mutable {
            auto result = work();
            isDrawing = false;
            promise.set_value(std::move(result));
        }).detach();
    } catch (const std::system_error &) { // no thread is to be had
        isDrawing = false;
        return std::nullopt;
    }
    while (future.wait_for(betweenLooks) != std::future_status::ready) {
        if (std::clock() - start > maxTime)
            return std::nullopt;
    }
    return future.get();
}

QSize sizeOf(const QByteArray &bytes, const QByteArray &format) {
    QBuffer buffer;
    buffer.setData(bytes);
    QImageReader reader(&buffer, format);
    reader.setAutoDetectImageFormat(false);
    const auto size = reader.size();
    if (reader.error() == QImageReader::UnsupportedFormatError)
        qCCritical(images).noquote() << "Nothing installed reads images of the format" << format;
    return size;
}

QImage drawn(const QByteArray &svg, const QSize &pixels) {
    return inTime<QImage>([svg, pixels] { return decoded(svg, "svg", pixels); }).value_or(QImage());
}

} // namespace

QImage Image::Representation::picture() const {
    return kept.isNull() ? decoded(bytes, format) : kept;
}

std::optional<Image::Representation> Image::representation(const QByteArray &bytes, bool sizeIsKnown) {
    const auto format = formatOf(bytes);
    if (!format || (format->isVector && !ImageBounds::allowDrawing(bytes)))
        return std::nullopt;
    if (format->isVector && sizeIsKnown)
        return Representation { .bytes = bytes, .format = format->name, .isVector = true };
    const QByteArray name(format->name);
    const auto bare = name == "png" ? ImageBounds::withoutExtras(bytes) : bytes;
    QImageReader::setAllocationLimit(maxMegabytes);
    auto pixels = format->isVector
        ? inTime<QSize>([bare, name] { return sizeOf(bare, name); }).value_or(QSize())
        : sizeOf(bare, name);
    if (!pixels.isValid() && !format->isVector)
        pixels = decoded(bare, name).size();
    if (!ImageBounds::allowPixels(bare, pixels))
        return std::nullopt;
    return Representation { .bytes = bare, .format = name, .pixels = pixels, .isVector = format->isVector };
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
    Image image;
    image.size_ = found->pixels;
    // A header alone is no picture.
    if (!found->isVector) {
        found->kept = decoded(found->bytes, found->format);
        if (found->kept.isNull())
            return std::nullopt;
        if (found->kept.width() > maxKept.width() || found->kept.height() > maxKept.height())
            found->kept = found->kept.scaled(maxKept, Qt::KeepAspectRatio, Qt::SmoothTransformation);
        found->pixels = found->kept.size();
        found->bytes.clear();
    }
    image.representations_.push_back(std::move(*found));
    return image;
}

QImage Image::scaledToFit(const QSize &box, double scale) const {
    const auto fitted = QSizeF(size_).scaled(QSizeF(box), Qt::KeepAspectRatio) * scale;
    const QSize pixels(std::max(1, static_cast<int>(std::lround(fitted.width()))),
        std::max(1, static_cast<int>(std::lround(fitted.height()))));

    // An exact size first, then one so large that it loses nothing made smaller, then the drawing, then the
    // smallest picture that need not be blown up.
    const auto pictureAsWideAs = [this](int width) {
        return std::find_if(representations_.begin(), representations_.end(),
            [width](const auto &each) { return !each.isVector && each.pixels.width() >= width; });
    };
    const auto none = representations_.end();
    const auto exact = std::find_if(representations_.begin(), none,
        [&pixels](const auto &each) { return !each.isVector && each.pixels == pixels; });
    const auto twiceAsLarge = pictureAsWideAs(2 * pixels.width());
    const auto vector
        = std::find_if(representations_.begin(), none, [](const auto &each) { return each.isVector; });

    QImage image;
    if (exact != none)
        image = exact->picture();
    else if (vector != none && twiceAsLarge == none)
        image = drawn(vector->bytes, pixels);
    if (image.isNull()) {
        const auto enough = twiceAsLarge != none ? twiceAsLarge : pictureAsWideAs(pixels.width());
        const auto largest = std::find_if(representations_.rbegin(), representations_.rend(),
            [](const auto &each) { return !each.isVector; });
        if (enough != none)
            image = enough->picture();
        else if (largest != representations_.rend())
            image = largest->picture();
        if (!image.isNull())
            image = image.scaled(pixels, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    }
    image.setDevicePixelRatio(scale);
    return image;
}
