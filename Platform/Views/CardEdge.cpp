#include "Platform/Views/CardEdge.h"

#include "Platform/Views/NoticeStyle.h"

#include <QList>
#include <QPaintEvent>
#include <QPainter>
#include <QPainterPath>
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
    constexpr int strip = 64;
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

void drawShadow(QPainter &painter, const QRect &card) {
    static QPixmap shadow;
    static double drawnFor = 0;
    const double scale = painter.device()->devicePixelRatioF();
    if (std::exchange(drawnFor, scale) != scale)
        shadow = shadowOfSmallCard(scale);
    const auto outside = QRectF(card.marginsAdded(CardEdge::shadowMargins));
    const int corner = qRound(shadowCorner * scale);
    painter.scale(1 / scale, 1 / scale);
    qDrawBorderPixmap(&painter, QRectF(outside.topLeft() * scale, outside.size() * scale).toRect(),
        { corner, corner, corner, corner }, shadow, shadow.rect(), { corner, corner, corner, corner },
        Qt::RepeatTile);
}

void drawOutline(QPainter &painter, const QRectF &rect, double width) {
    painter.fillRect(QRectF(rect.left(), rect.top(), rect.width(), width), lineColor);
    painter.fillRect(QRectF(rect.left(), rect.bottom() - width, rect.width(), width), lineColor);
    painter.fillRect(QRectF(rect.left(), rect.top(), width, rect.height()), lineColor);
    painter.fillRect(QRectF(rect.right() - width, rect.top(), width, rect.height()), lineColor);
}

} // namespace

const QMargins CardEdge::shadowMargins(
    shadowReach, shadowReach - shadowDrop, shadowReach, shadowReach + shadowDrop);

CardEdge::CardEdge(QWidget *parent)
    : QWidget(parent) {
    setAttribute(Qt::WA_TransparentForMouseEvents);
}

void CardEdge::setHasShadow(bool hasShadow) {
    hasShadow_ = hasShadow;
    update();
}

void CardEdge::paintEvent(QPaintEvent *event) {
    const auto card = hasShadow_ ? rect().marginsRemoved(shadowMargins) : rect();
    constexpr int corner = static_cast<int>(cornerRadius);
    // Nothing of it is where the texts are.
    const auto inside = card.adjusted(corner, corner, -corner, -corner);
    if (inside.contains(event->rect()))
        return;
    QPainter painter(this);
    const double line = NoticeStyle::hairline(*this);
    if (!hasShadow_) {
        drawOutline(painter, card, line);
        // At a scale between two whole ones the window may lack its last row and column.
        if (line != 1)
            drawOutline(painter, QRectF(card).adjusted(0, 0, -line, -line), line);
        return;
    }
    // The card is opaque but for its corners.
    painter.setClipRegion(
        event->region() - card.adjusted(corner, 0, -corner, 0) - card.adjusted(0, corner, 0, -corner));
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath corners;
    corners.addRect(card);
    corners.addRoundedRect(card, cornerRadius, cornerRadius);
    painter.setCompositionMode(QPainter::CompositionMode_DestinationOut);
    painter.fillPath(corners, Qt::black);
    painter.setCompositionMode(QPainter::CompositionMode_DestinationOver);
    // The line first: it lies over the shadow.
    const double half = line / 2;
    painter.setPen(QPen(lineColor, line));
    painter.drawRoundedRect(
        QRectF(card).adjusted(-half, -half, half, half), cornerRadius + half, cornerRadius + half);
    drawShadow(painter, card);
}
