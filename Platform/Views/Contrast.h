#pragma once

#include <QColor>

/// Readability of one colour on another, by the usual measure of web content (relative luminance).
namespace Contrast {

/// What text has to reach.
inline constexpr double readable = 4.5;

/// From 1 (equal) to 21 (black on white). Alpha is not looked at.
double ratio(const QColor &first, const QColor &second);

/// Near-white or near-black, whichever reads better on the ground; always at least `readable`.
QColor textOn(const QColor &ground);

/// `amount` of `second` in `first`, from 0 to 1.
QColor mixed(const QColor &first, const QColor &second, double amount);

} // namespace Contrast
