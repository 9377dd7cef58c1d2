#include "Platform/Views/CountdownLine.h"

#include <QPainter>

#include <algorithm>

CountdownLine::CountdownLine(QWidget *parent)
    : QWidget(parent) { }

void CountdownLine::setRemaining(double fraction) {
    remaining_ = std::clamp(fraction, 0.0, 1.0);
    update();
}

void CountdownLine::paintEvent(QPaintEvent *) {
    const double length = width() * remaining_;
    const double left = layoutDirection() == Qt::RightToLeft ? 0 : width() - length;
    QPainter(this).fillRect(QRectF(left, 0, length, height()), QColor(30, 34, 52));
}
