#include "Platform/Views/CountdownLine.h"

#include "Platform/Views/NoticeStyle.h"

#include <QPainter>

#include <algorithm>
#include <utility>

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
    const double now = std::clamp(fraction, 0.0, 1.0);
    // What changed before too: a compositor may have missed it.
    const auto [shortest, longest] = std::minmax({ now, remaining_, before_ });
    before_ = std::exchange(remaining_, now);
    update(part(shortest, longest).toAlignedRect());
}

QRectF CountdownLine::part(double from, double to) const {
    const double start = layoutDirection() == Qt::RightToLeft ? 1 - to : from;
    return { start * width(), 0, (to - from) * width(), static_cast<double>(height()) };
}

void CountdownLine::paintEvent(QPaintEvent *) {
    QPainter painter(this);
    painter.fillRect(rect(), NoticeStyle::hairlineColor);
    painter.fillRect(part(0, remaining_), NoticeSign::colorOf(kind_));
}
