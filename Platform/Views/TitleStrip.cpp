#include "Platform/Views/TitleStrip.h"

#include "Platform/Views/PushButton.h"

#include <QApplication>
#include <QEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QWindow>

namespace {

constexpr int closeButtonWidth = 34;

} // namespace

TitleStrip::TitleStrip(QWidget *parent)
    : QWidget(parent)
    , closeButton_(new CloseButton(this)) {
    setFixedHeight(stripHeight);
}

void TitleStrip::setGroundColor(const QColor &color) {
    groundColor_ = color;
    closeButton_->setLayerBackgroundColor(color);
    update();
}

void TitleStrip::setUpperCornerRadius(double radius) {
    upperCornerRadius_ = radius;
    update();
}

void TitleStrip::paintEvent(QPaintEvent *event) {
    QPainter painter(this);
    painter.setClipRect(event->rect());
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    if (upperCornerRadius_ <= 0)
        return painter.fillRect(rect(), groundColor_);
    // The lower corners of the rounded rectangle are pushed out of sight.
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath path;
    path.addRoundedRect(
        QRectF(rect()).adjusted(0, 0, 0, 2 * upperCornerRadius_), upperCornerRadius_, upperCornerRadius_);
    painter.fillPath(path, groundColor_);
}

void TitleStrip::placeCloseButton() {
    const int left = layoutDirection() == Qt::RightToLeft ? 0 : width() - closeButtonWidth;
    closeButton_->setGeometry(left, 0, closeButtonWidth, height());
}

void TitleStrip::resizeEvent(QResizeEvent *) {
    placeCloseButton();
}

void TitleStrip::changeEvent(QEvent *event) {
    if (event->type() == QEvent::LayoutDirectionChange)
        placeCloseButton();
    QWidget::changeEvent(event);
}

void TitleStrip::mousePressEvent(QMouseEvent *event) {
    if (event->button() != Qt::LeftButton)
        return;
    pressed_ = true;
    pressedAt_ = event->globalPosition().toPoint();
}

void TitleStrip::mouseMoveEvent(QMouseEvent *event) {
    if (!pressed_)
        return;
    const auto now = event->globalPosition().toPoint();
    if ((now - pressedAt_).manhattanLength() < QApplication::startDragDistance())
        return;
    Q_EMIT dragged();
    // The window manager moves it where there is one; otherwise it follows the pointer by itself.
    if (auto *handle = window()->windowHandle(); handle && handle->startSystemMove()) {
        pressed_ = false;
        return;
    }
    window()->move(window()->pos() + now - pressedAt_);
    pressedAt_ = now;
}

void TitleStrip::mouseReleaseEvent(QMouseEvent *) {
    pressed_ = false;
}
