#include "Platform/Views/TitleStrip.h"

#include "Platform/Views/Contrast.h"
#include "Platform/Views/FocusRing.h"

#include <QApplication>
#include <QEvent>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QWindow>

namespace {

constexpr int closeButtonWidth = 34;
constexpr double crossHalf = 4.0;
constexpr double crossWidth = 1.4;

} // namespace

CloseButton::CloseButton(QWidget *parent)
    : QAbstractButton(parent) {
    setAttribute(Qt::WA_Hover);
    setFocusPolicy(Qt::TabFocus);
}

void CloseButton::setGroundColor(const QColor &color) {
    groundColor_ = color;
    update();
}

void CloseButton::paintEvent(QPaintEvent *) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const auto glyph = Contrast::textOn(groundColor_);
    if (underMouse() || isDown())
        painter.fillRect(rect(), Contrast::mixed(groundColor_, glyph, isDown() ? 0.28 : 0.16));
    painter.setPen(QPen(Contrast::mixed(groundColor_, glyph, underMouse() ? 1.0 : 0.75), crossWidth,
        Qt::SolidLine, Qt::RoundCap));
    const QPointF center = QRectF(rect()).center();
    painter.drawLine(center - QPointF(crossHalf, crossHalf), center + QPointF(crossHalf, crossHalf));
    painter.drawLine(center - QPointF(crossHalf, -crossHalf), center + QPointF(crossHalf, -crossHalf));
    if (showsFocusRing(*this)) {
        painter.setPen(QPen(glyph, 1.5));
        painter.drawRoundedRect(QRectF(rect()).adjusted(4, 4, -4, -4), 2, 2);
    }
}

// As with the notice's own button the keys go on to the window.
void CloseButton::keyPressEvent(QKeyEvent *event) {
    event->ignore();
}
void CloseButton::keyReleaseEvent(QKeyEvent *event) {
    event->ignore();
}

TitleStrip::TitleStrip(QWidget *parent)
    : QWidget(parent)
    , closeButton_(new CloseButton(this)) {
    setFixedHeight(stripHeight);
}

void TitleStrip::setGroundColor(const QColor &color) {
    groundColor_ = color;
    closeButton_->setGroundColor(color);
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
