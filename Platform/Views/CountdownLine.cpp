#include "Platform/Views/CountdownLine.h"

#include "Platform/Views/NoticeStyle.h"

#include <QPainter>

#include <algorithm>

namespace {

constexpr int lineHeight = 3;

} // namespace

CountdownLine::CountdownLine(QWidget *parent)
    : QWidget(parent) {
    setFixedHeight(lineHeight);
    // It keeps its place while it is hidden, so that nothing moves when it appears.
    auto policy = sizePolicy();
    policy.setRetainSizeWhenHidden(true);
    setSizePolicy(policy);
}

void CountdownLine::setRemaining(double fraction) {
    remaining_ = std::clamp(fraction, 0.0, 1.0);
    update(); // all of it: a compositor may have missed what was painted before
}

void CountdownLine::paintEvent(QPaintEvent *) {
    QRectF left(0, 0, remaining_ * width(), height());
    if (layoutDirection() == Qt::RightToLeft)
        left.moveRight(width());
    QPainter painter(this);
    painter.fillRect(rect(), NoticeStyle::hairlineColor);
    painter.fillRect(left, NoticeSign::colorOf(kind_));
}
