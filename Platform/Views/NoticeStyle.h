#pragma once

#include <QAbstractButton>
#include <QCommonStyle>

/// What the controls of a notice look like: button, cross, focus ring, scroll bar, hairline. Layouts have no
/// margins and no spacing but those that a form gives. The application's style.
class NoticeStyle final : public QCommonStyle {
    Q_OBJECT

public:
    /// A control's ground in its present state: disabled, pressed, under the pointer, or at rest.
    static QColor groundColor(const QColor &atRest, const QAbstractButton &control);

    /// Whether a focused view shows that it is: once the user goes about with the keyboard in the active
    /// window. One that merely begins with the focus looks like any other.
    static bool showsFocusRing(const QWidget &view);
    static void drawFocusRing(QPainter &painter, const QRectF &rect, const QColor &color);

    /// The thickness of the thinnest line: whole pixels of the screen, so that it is sharp at every scale.
    static double hairline(const QWidget &view);
    static const QColor hairlineColor;

    void drawComplexControl(ComplexControl control, const QStyleOptionComplex *option, QPainter *painter,
        const QWidget *widget) const override;
    int pixelMetric(PixelMetric metric, const QStyleOption *option, const QWidget *widget) const override;
};
