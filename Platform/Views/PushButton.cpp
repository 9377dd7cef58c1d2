#include "Platform/Views/PushButton.h"

#include "Platform/Views/Contrast.h"
#include "Platform/Views/FocusRing.h"

#include <QApplication>
#include <QKeyEvent>
#include <QPainter>

#include <algorithm>

namespace {

constexpr QSize smallestSize(96, 34);
constexpr int sideMargin = 18;
constexpr int heightMargin = 15;
constexpr double textSizeInPoints = 13 * 72.0 / 96.0;
constexpr double focusRingInset = 3.0;
constexpr double focusRingWidth = 1.5;

} // namespace

PushButton::PushButton(QWidget *parent)
    : QPushButton(parent) {
    QFont styled = QApplication::font();
    styled.setPointSizeF(textSizeInPoints);
    styled.setWeight(QFont::DemiBold);
    styled.setHintingPreference(QFont::PreferVerticalHinting);
    setFont(styled);
    setAttribute(Qt::WA_Hover);
    setFocusPolicy(Qt::StrongFocus);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

void PushButton::setWantsLayer(bool wantsLayer) {
    wantsLayer_ = wantsLayer;
    update();
}

void PushButton::setLayerBackgroundColor(const QColor &color) {
    layerBackgroundColor_ = color;
    update();
}

void PushButton::setCornerRadius(double radius) {
    cornerRadius_ = radius;
    update();
}

QColor PushButton::groundColor() const {
    if (!wantsLayer_)
        return palette().color(QPalette::Button);
    const auto light = Contrast::textOn(layerBackgroundColor_);
    if (!isEnabled())
        return Contrast::mixed(layerBackgroundColor_, light, 0.3);
    if (isDown())
        return Contrast::mixed(layerBackgroundColor_, light, 0.22);
    if (underMouse())
        return Contrast::mixed(layerBackgroundColor_, light, 0.12);
    return layerBackgroundColor_;
}

QColor PushButton::textColor() const {
    return Contrast::textOn(groundColor());
}

QSize PushButton::sizeHint() const {
    const QFontMetrics metrics(font());
    return { std::max(smallestSize.width(), metrics.horizontalAdvance(text()) + 2 * sideMargin),
        std::max(smallestSize.height(), metrics.height() + heightMargin) };
}

void PushButton::paintEvent(QPaintEvent *) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(groundColor());
    painter.drawRoundedRect(QRectF(rect()), cornerRadius_, cornerRadius_);

    painter.setPen(textColor());
    painter.setFont(font());
    painter.drawText(rect(), Qt::AlignCenter | Qt::TextSingleLine, text());

    if (showsFocusRing(*this)) {
        const auto inset = focusRingInset;
        painter.setPen(QPen(textColor(), focusRingWidth));
        painter.setBrush(Qt::NoBrush);
        painter.drawRoundedRect(QRectF(rect()).adjusted(inset, inset, -inset, -inset), 1.5, 1.5);
    }
}

// The keys go on to the window, which knows how long it has had the keyboard.
void PushButton::keyPressEvent(QKeyEvent *event) {
    event->ignore();
}
void PushButton::keyReleaseEvent(QKeyEvent *event) {
    event->ignore();
}
