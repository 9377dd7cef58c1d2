#include "Platform/Views/TitleStrip.h"

#include "Platform/Views/PushButton.h"

#include <QApplication>
#include <QEvent>
#include <QMouseEvent>
#include <QPaintEvent>
#include <QPainter>

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

void TitleStrip::paintEvent(QPaintEvent *event) {
    QPainter(this).fillRect(event->rect(), groundColor_);
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
    isDragged_ = false;
    pointer_ = event->globalPosition().toPoint();
}

void TitleStrip::mouseMoveEvent(QMouseEvent *event) {
    if (!pressed_)
        return;
    const auto distance = event->globalPosition().toPoint() - pointer_;
    isDragged_ = isDragged_ || distance.manhattanLength() >= QApplication::startDragDistance();
    if (!isDragged_)
        return;
    pointer_ += distance;
    Q_EMIT dragged(distance);
}

void TitleStrip::mouseReleaseEvent(QMouseEvent *) {
    pressed_ = false;
}
