#include "Platform/Views/CardEdge.h"

#include <QList>
#include <QPaintEvent>
#include <QPainter>
#include <QPainterPath>
#include <QtMath>
#include <qdrawutil.h>

#include <cmath>
#include <utility>

namespace {

constexpr double cornerRadius = 10;
const QColor lineColor(188, 191, 194);

// The shadow of a card that lies a little above the desktop, under a light from above.
constexpr double shadowBlur = 10; // standard deviation
constexpr int shadowDrop = 6;
constexpr double shadowAlpha = 0.25;
constexpr int shadowReach = 24;
constexpr int shadowInside = 24; // where it is as good as even
constexpr int shadowCorner = shadowReach + shadowInside;

/// The shadow of a small card, in pixels of the screen: its four corners, with an even strip between them.
QPixmap shadowOfSmallCard(double scale) {
    constexpr int strip = 128;
    const int corner = qRound(shadowCorner * scale);
    const int side = 2 * corner + strip;
    QList<double> profile;
    for (int index = 0; index < side; ++index) {
        const double fromEdge = (std::min(index, side - 1 - index) + 0.5) / scale - shadowReach;
        profile.push_back(0.5 * (1 + std::erf(fromEdge / (shadowBlur * M_SQRT2))));
    }
    QImage image(side, side, QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < side; ++y) {
        auto *line = reinterpret_cast<QRgb *>(image.scanLine(y));
        for (int x = 0; x < side; ++x)
            line[x] = qRgba(0, 0, 0, qRound(255 * shadowAlpha * profile[x] * profile[y]));
    }
    return QPixmap::fromImage(image);
}

const QPixmap &shadowFor(double scale) {
    static QPixmap shadow;
    static double drawnFor = 0;
    if (std::exchange(drawnFor, scale) != scale)
        shadow = shadowOfSmallCard(scale);
    return shadow;
}

void drawShadow(QPainter &painter, const QRect &card, double scale) {
    const auto onScreen = [scale](int length) { return qRound(length * scale); };
    const int reach = onScreen(shadowReach);
    const int corner = onScreen(shadowCorner);
    const auto &shadow = shadowFor(scale);
    qDrawBorderPixmap(&painter,
        card.translated(0, onScreen(shadowDrop)).adjusted(-reach, -reach, reach, reach),
        { corner, corner, corner, corner }, shadow, shadow.rect(), { corner, corner, corner, corner },
        Qt::RepeatTile);
}

void drawRoundEdge(QPainter &painter, const QRect &window, const QRect &card, double scale, int line) {
    const double radius = cornerRadius * scale;
    const int corner = line + qCeil(radius);
    const auto withLine = card.adjusted(-line, -line, line, line);
    const auto cross
        = QRegion(withLine.adjusted(corner, 0, -corner, 0)) + withLine.adjusted(0, corner, 0, -corner);
    // Rectangle by rectangle these are copied and filled; only the corners are blended.
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    for (const auto &part : QRegion(window) - withLine) {
        painter.setClipRect(part);
        drawShadow(painter, card, scale);
    }
    painter.setClipping(false);
    for (const auto &part : cross - card)
        painter.fillRect(part, lineColor);

    painter.setClipRegion(QRegion(withLine) - cross);
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath outside;
    outside.addRect(withLine);
    outside.addRoundedRect(card, radius, radius);
    painter.setCompositionMode(QPainter::CompositionMode_DestinationOut);
    painter.fillPath(outside, Qt::black);
    painter.setCompositionMode(QPainter::CompositionMode_DestinationOver);
    drawShadow(painter, card, scale);
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    const double half = line / 2.0;
    painter.setPen(QPen(lineColor, line));
    painter.drawRoundedRect(QRectF(card).adjusted(-half, -half, half, half), radius + half, radius + half);
}

void drawOutline(QPainter &painter, const QRect &card, int line) {
    for (const auto &part : QRegion(card) - card.adjusted(line, line, -line, -line))
        painter.fillRect(part, lineColor);
}

} // namespace

// Whole pixels of the screen at a scale of quarters.
const QMargins CardEdge::shadowMargins(shadowReach, shadowReach - 4, shadowReach, shadowReach + 4);

CardEdge::CardEdge(QWidget *parent)
    : QWidget(parent) {
    setAttribute(Qt::WA_TransparentForMouseEvents);
}

void CardEdge::setHasShadow(bool hasShadow) {
    hasShadow_ = hasShadow;
    if (hasShadow)
        shadowFor(devicePixelRatioF()); // before there is a notice
    update();
}

void CardEdge::paintEvent(QPaintEvent *event) {
    const auto card = hasShadow_ ? rect().marginsRemoved(shadowMargins) : rect();
    constexpr int corner = static_cast<int>(cornerRadius);
    // Nothing of it is where the texts are.
    const auto inside = card.adjusted(corner, corner, -corner, -corner);
    if (inside.contains(event->rect()))
        return;
    // In pixels of the screen.
    QPainter painter(this);
    const double scale = painter.device()->devicePixelRatioF();
    painter.scale(1 / scale, 1 / scale);
    const auto onScreen = [scale](const QRectF &area) {
        return QRectF(area.topLeft() * scale, area.size() * scale).toRect();
    };
    const int line = qFloor(scale);
    if (hasShadow_)
        drawRoundEdge(painter, onScreen(rect()), onScreen(card), scale, line);
    else
        drawOutline(painter, onScreen(card), line);
}
