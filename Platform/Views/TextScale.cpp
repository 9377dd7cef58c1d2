#include "Platform/Views/TextScale.h"

#include <QApplication>
#include <QScreen>

#include <algorithm>

namespace {

constexpr double pointsPerInch = 72;

double dotsPerInch() {
    constexpr double atScaleOne = 96;
    const auto *screen = QGuiApplication::primaryScreen();
    return screen ? screen->logicalDotsPerInchY() : atScaleOne;
}

} // namespace

double textScale() {
    constexpr double pixelsPerPoint = 96 / pointsPerInch;
    constexpr double ordinaryPixels = 10 * pixelsPerPoint;
    constexpr double maxOrdinaryPixels = 11 * pixelsPerPoint;
    constexpr double maxScale = 2.5;
    const auto font = QApplication::font();
    const double pixels
        = font.pixelSize() > 0 ? font.pixelSize() : font.pointSizeF() * dotsPerInch() / pointsPerInch;
    return pixels <= maxOrdinaryPixels ? 1.0 : std::min(pixels / ordinaryPixels, maxScale);
}

int cardWidth() {
    constexpr int besideText = 104;
    constexpr double textColumn = 356;
    return besideText + qRound(textColumn * textScale());
}

QFont scaledFont(double pixels, QFont::Weight weight) {
    QFont font;
    font.setPointSizeF(pixels * textScale() * pointsPerInch / dotsPerInch());
    font.setWeight(weight);
    // Letters stand where the font wants them, also between two pixels.
    font.setHintingPreference(QFont::PreferVerticalHinting);
    return font;
}
