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
    update();
}

void CountdownLine::paintEvent(QPaintEvent *) {
    QPainter painter(this);
    painter.fillRect(rect(), NoticeStyle::hairlineColor);
    const double length = width() * remaining_;
    const double left = layoutDirection() == Qt::RightToLeft ? width() - length : 0;
    painter.fillRect(QRectF(left, 0, length, height()), NoticeSign::colorOf(kind_));
}
