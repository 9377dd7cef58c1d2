#include "Platform/Views/Contrast.h"

#include <algorithm>
#include <cmath>

namespace {

double linear(double component) {
    return component <= 0.04045 ? component / 12.92 : std::pow((component + 0.055) / 1.055, 2.4);
}

double luminance(const QColor &color) {
    const auto rgb = color.toRgb();
    return 0.2126 * linear(rgb.redF()) + 0.7152 * linear(rgb.greenF()) + 0.0722 * linear(rgb.blueF());
}

} // namespace

double Contrast::ratio(const QColor &first, const QColor &second) {
    const auto [darker, lighter] = std::minmax({ luminance(first), luminance(second) });
    return (lighter + 0.05) / (darker + 0.05);
}

QColor Contrast::textOn(const QColor &ground) {
    const QColor light(255, 255, 255);
    const QColor dark(0, 0, 0);
    return ratio(light, ground) >= readable ? light : dark;
}

QColor Contrast::mixed(const QColor &first, const QColor &second, double amount) {
    const auto mix
        = [amount](int from, int to) { return static_cast<int>(std::lround(from + (to - from) * amount)); };
    return QColor(
        mix(first.red(), second.red()), mix(first.green(), second.green()), mix(first.blue(), second.blue()));
}
