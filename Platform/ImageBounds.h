#pragma once

#include <QByteArray>
#include <QSize>

/// What is looked at in a picture from outside before a decoder gets it, in time linear in its bytes. What is
/// allowed is decoded and drawn within a second and asks for nothing outside itself. Any thread.
namespace ImageBounds {

/// Whether a drawing may be parsed and drawn: UTF-8, no reference to anything outside, nothing that runs or
/// multiplies itself, and bounds on size, depth, attributes, style rules and letters.
bool allowDrawing(const QByteArray &svg);

/// Whether a picture of that size may be decoded.
/// @param bytes  the whole file; the scans of a JPEG are counted in it
bool allowPixels(const QByteArray &bytes, const QSize &pixels);

/// A PNG without the chunks that no notice needs, some of which multiply themselves. One that is cut off is
/// left out.
QByteArray withoutExtras(const QByteArray &png);

} // namespace ImageBounds
