#include "Platform/Views/NoticeSign.h"

#include <QPainter>
#include <QPainterPath>

namespace {

constexpr int side = 40;
constexpr double cornerRadius = 10;
constexpr double strokeWidth = 1.7;

void addLine(QPainterPath &path, const QPointF &from, const QPointF &to) {
    path.moveTo(from);
    path.lineTo(to);
}

QPainterPath crossedCircle() {
    QPainterPath path;
    path.addEllipse(QPointF(20, 20), 8.2, 8.2);
    addLine(path, { 14.3, 14.3 }, { 25.7, 25.7 });
    return path;
}

QPainterPath key() {
    QPainterPath path;
    path.addEllipse(QPointF(16.2, 24), 4.4, 4.4);
    addLine(path, { 19.4, 20.8 }, { 28.2, 12 });
    addLine(path, { 24.4, 15.8 }, { 27.8, 19.2 });
    addLine(path, { 21.7, 18.5 }, { 23.6, 20.4 });
    return path;
}

QPainterPath plug() {
    QPainterPath path;
    addLine(path, { 17, 11 }, { 17, 16 });
    addLine(path, { 23, 11 }, { 23, 16 });
    path.moveTo(14, 16);
    path.lineTo(26, 16);
    path.lineTo(26, 18.8);
    path.arcTo(QRectF(14, 12.8, 12, 12), 0, -180);
    path.closeSubpath();
    addLine(path, { 20, 25 }, { 20, 29 });
    return path;
}

QPainterPath twoScreens() {
    QPainterPath path;
    path.addRoundedRect(QRectF(10.9, 12.2, 13.4, 9.8), 1.6, 1.6);
    path.moveTo(28.9, 17.2);
    path.lineTo(28.9, 24);
    path.arcTo(QRectF(25.7, 22.4, 3.2, 3.2), 0, -90);
    path.lineTo(16.8, 25.6);
    return path;
}

// Upright around the head's centre; the head's mouth is open to the top.
QPainterPath uprightWrench() {
    constexpr double radius = 5.2;
    constexpr double mouthHalf = 1.7;
    constexpr double handleHalf = 2.1;
    constexpr double handleEnd = 13.6;
    constexpr double mouthAngle = 19.1; // asin(mouthHalf / radius), in degrees
    constexpr double handleAngle = 23.8; // asin(handleHalf / radius)
    const QRectF head(-radius, -radius, 2 * radius, 2 * radius);
    QPainterPath path;
    path.arcMoveTo(head, 90 + mouthAngle);
    path.arcTo(head, 90 + mouthAngle, 180 - mouthAngle - handleAngle);
    path.lineTo(-handleHalf, handleEnd);
    path.arcTo(QRectF(-handleHalf, handleEnd - handleHalf, 2 * handleHalf, 2 * handleHalf), 180, 180);
    path.arcTo(head, 270 + handleAngle, 180 - mouthAngle - handleAngle);
    path.lineTo(mouthHalf, -0.6);
    path.arcTo(QRectF(-mouthHalf, -0.6 - mouthHalf, 2 * mouthHalf, 2 * mouthHalf), 0, -180);
    path.closeSubpath();
    return path;
}

QPainterPath wrench() {
    return QTransform().translate(24.2, 16.2).rotate(45).map(uprightWrench());
}

struct Look {
    QColor color;
    QColor ground;
    QPainterPath (*path)();
};

Look lookOf(NoticeSign::Kind kind) {
    const QColor blue(45, 95, 208);
    const QColor lightBlue(232, 240, 254);
    switch (kind) {
    case NoticeSign::Kind::Blocked:
        return { { 194, 53, 43 }, { 253, 236, 235 }, crossedCircle };
    case NoticeSign::Kind::SignIn:
        return { blue, lightBlue, key };
    case NoticeSign::Kind::OtherSession:
        return { blue, lightBlue, twoScreens };
    case NoticeSign::Kind::Disconnected:
        return { { 154, 91, 0 }, { 255, 241, 220 }, plug };
    case NoticeSign::Kind::Maintenance:
        break;
    }
    return { { 75, 82, 104 }, { 236, 238, 244 }, wrench };
}

} // namespace

NoticeSign::NoticeSign(QWidget *parent)
    : QWidget(parent) {
    setFixedSize(side, side);
}

void NoticeSign::setKind(Kind kind) {
    kind_ = kind;
    update();
}

QColor NoticeSign::colorOf(Kind kind) {
    return lookOf(kind).color;
}

void NoticeSign::paintEvent(QPaintEvent *) {
    const auto look = lookOf(kind_);
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(look.ground);
    painter.drawRoundedRect(QRectF(rect()), cornerRadius, cornerRadius);
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(look.color, strokeWidth, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.drawPath(look.path());
}
