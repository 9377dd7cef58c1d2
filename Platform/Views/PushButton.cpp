#include "Platform/Views/PushButton.h"

#include "Platform/Views/Contrast.h"
#include "Platform/Views/NoticeStyle.h"
#include "Platform/Views/TextScale.h"

#include <QKeyEvent>
#include <QPainter>

#include <algorithm>

namespace {

constexpr QSize minSize(96, 34);
constexpr int sideMargin = 18;
constexpr double textSize = 13;
constexpr double focusRingInset = 3;

QRectF inset(const QRectF &rect, double by) {
    return rect.adjusted(by, by, -by, -by);
}

} // namespace

PushButton::PushButton(QWidget *parent)
    : QPushButton(parent) {
    setFont(scaledFont(textSize, QFont::DemiBold));
    setAttribute(Qt::WA_Hover);
    setFocusPolicy(Qt::StrongFocus);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
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
    return NoticeStyle::groundColor(layerBackgroundColor_, *this);
}

QColor PushButton::textColor() const {
    return Contrast::textOn(groundColor());
}

QSize PushButton::sizeHint() const {
    const double scale = textScale();
    const int textWidth = static_cast<int>(std::ceil(QFontMetricsF(font()).horizontalAdvance(text())));
    return { std::max(qRound(minSize.width() * scale), textWidth + 2 * qRound(sideMargin * scale)),
        qRound(minSize.height() * scale) };
}

void PushButton::paintEvent(QPaintEvent *) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(groundColor());
    painter.drawRoundedRect(QRectF(rect()), cornerRadius_, cornerRadius_);

    // By the height of a capital: a box around letters of another font, or with long descenders, would move
    // the text.
    const QFontMetricsF metrics(font());
    const double capital = std::min(metrics.capHeight(), -metrics.tightBoundingRect(text()).top());
    const double left = (width() - metrics.horizontalAdvance(text())) / 2;
    painter.setPen(textColor());
    painter.setFont(font());
    painter.drawText(QPointF(left, std::round((height() + capital) / 2)), text());

    if (NoticeStyle::showsFocusRing(*this))
        NoticeStyle::drawFocusRing(painter, inset(rect(), focusRingInset), textColor());
}

// The keys go on to the window, which knows how long it has had the keyboard.
void PushButton::keyPressEvent(QKeyEvent *event) {
    event->ignore();
}
void PushButton::keyReleaseEvent(QKeyEvent *event) {
    event->ignore();
}

CloseButton::CloseButton(QWidget *parent)
    : PushButton(parent) {
    setFocusPolicy(Qt::TabFocus);
}

void CloseButton::paintEvent(QPaintEvent *) {
    constexpr double crossHalf = 4;
    constexpr double crossWidth = 1.4;
    constexpr double groundInset = 3;
    constexpr double groundRadius = 4;
    constexpr double strengthAtRest = 0.75;
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const bool isAtRest = groundColor() == layerBackgroundColor();
    if (!isAtRest) {
        // Well inside the window's rounded corner.
        painter.setPen(Qt::NoPen);
        painter.setBrush(groundColor());
        painter.drawRoundedRect(inset(rect(), groundInset), groundRadius, groundRadius);
    }
    painter.setPen(QPen(Contrast::mixed(groundColor(), textColor(), isAtRest ? strengthAtRest : 1.0),
        crossWidth, Qt::SolidLine, Qt::RoundCap));
    const QPointF center = QRectF(rect()).center();
    painter.drawLine(center - QPointF(crossHalf, crossHalf), center + QPointF(crossHalf, crossHalf));
    painter.drawLine(center - QPointF(crossHalf, -crossHalf), center + QPointF(crossHalf, -crossHalf));
    if (NoticeStyle::showsFocusRing(*this))
        NoticeStyle::drawFocusRing(painter, inset(rect(), focusRingInset), textColor());
}
