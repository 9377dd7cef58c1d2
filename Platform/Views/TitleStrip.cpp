#include "Platform/Views/TitleStrip.h"

#include "Platform/Views/Contrast.h"
#include "Platform/Views/FocusRing.h"

#include <QApplication>
#include <QEvent>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPaintEvent>
#include <QPainter>

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
