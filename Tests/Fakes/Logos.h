#pragma once

#include <QByteArray>
#include <QColor>

#include <optional>

class ImageView;

/// A picture of one colour, as the bytes of a PNG file.
QByteArray logoBytes(const QColor &color);

/// The colour of such a picture in an image view; nothing when the view is empty.
std::optional<QColor> logoColor(const ImageView &view);
