#include "Tests/Fakes/Logos.h"

#include "Platform/Views/ImageView.h"

#include <QBuffer>

QByteArray logoBytes(const QColor &color) {
    QImage image(40, 32, QImage::Format_ARGB32);
    image.fill(color);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

std::optional<QColor> logoColor(const ImageView &view) {
    if (!view.image())
        return std::nullopt;
    const auto drawn = view.image()->scaledToFit(QSize(40, 32), 1);
    return drawn.pixelColor(drawn.rect().center());
}
