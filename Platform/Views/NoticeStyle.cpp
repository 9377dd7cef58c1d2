#include "Platform/Views/NoticeStyle.h"

#include "Platform/Views/Contrast.h"

#include <QPainter>
#include <QStyleOption>

#include <cmath>

namespace {

constexpr int scrollBarWidth = 8;
constexpr int minSliderHeight = 28;
const QColor scrollGrooveColor(240, 241, 245);
const QColor scrollSliderColor(138, 145, 165);

} // namespace

QColor NoticeStyle::groundColor(const QColor &atRest, const QAbstractButton &control) {
    const auto light = Contrast::textOn(atRest);
    if (!control.isEnabled())
        return Contrast::mixed(atRest, light, 0.3);
    if (control.isDown())
        return Contrast::mixed(atRest, light, 0.22);
    return control.underMouse() ? Contrast::mixed(atRest, light, 0.12) : atRest;
}

bool NoticeStyle::showsFocusRing(const QWidget &view) {
    return view.hasFocus() && view.isActiveWindow()
        && view.window()->testAttribute(Qt::WA_KeyboardFocusChange);
}

void NoticeStyle::drawFocusRing(QPainter &painter, const QRectF &rect, const QColor &color) {
    constexpr double width = 1.5;
    constexpr double radius = 2;
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(color, width));
    painter.setBrush(Qt::NoBrush);
    painter.drawRoundedRect(rect, radius, radius);
}

const QColor NoticeStyle::hairlineColor(228, 231, 239);

double NoticeStyle::hairline(const QWidget &view) {
    return std::floor(view.devicePixelRatioF()) / view.devicePixelRatioF();
}

void NoticeStyle::drawComplexControl(ComplexControl control, const QStyleOptionComplex *option,
    QPainter *painter, const QWidget *widget) const {
    if (control != CC_ScrollBar)
        return QCommonStyle::drawComplexControl(control, option, painter, widget);
    const auto draw = [painter](const QRect &rect, const QColor &color) {
        constexpr double radius = scrollBarWidth / 2.0;
        painter->setBrush(color);
        painter->drawRoundedRect(rect, radius, radius);
    };
    painter->fillRect(option->rect, Qt::white);
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setPen(Qt::NoPen);
    draw(option->rect, scrollGrooveColor);
    draw(subControlRect(control, option, SC_ScrollBarSlider, widget), scrollSliderColor);
}

int NoticeStyle::pixelMetric(PixelMetric metric, const QStyleOption *option, const QWidget *widget) const {
    switch (metric) {
    case PM_LayoutLeftMargin:
    case PM_LayoutTopMargin:
    case PM_LayoutRightMargin:
    case PM_LayoutBottomMargin:
    case PM_LayoutHorizontalSpacing:
    case PM_LayoutVerticalSpacing:
        return 0;
    case PM_ScrollBarExtent:
        return scrollBarWidth;
    case PM_ScrollBarSliderMin:
        return minSliderHeight;
    default:
        return QCommonStyle::pixelMetric(metric, option, widget);
    }
}
