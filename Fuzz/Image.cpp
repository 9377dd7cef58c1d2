// The logo of a message, from its bytes to the picture in the header.

#include "Platform/Image.h"
#include "Fuzz/Check.h"

#include <QGuiApplication>
#include <QImage>
#include <QLoggingCategory>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerInitialize(int *argumentCount, char ***arguments) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    // What the readers say of a broken picture.
    QLoggingCategory::setFilterRules(QStringLiteral("*=false"));
    static int qtArgumentCount = 1;
    static QGuiApplication application(qtArgumentCount, *arguments);
    static_cast<void>(argumentCount);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const auto image
        = Image::withData(QByteArray(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size)));
    if (!image)
        return 0;
    check(!image->size().isEmpty());
    constexpr QSize box(160, 32);
    const auto picture = image->scaledToFit(box, 2);
    check(picture.isNull() || (picture.width() <= 2 * box.width() && picture.height() <= 2 * box.height()));
    return 0;
}
