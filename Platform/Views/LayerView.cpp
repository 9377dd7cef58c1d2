#include "Platform/Views/LayerView.h"

#include <QPaintEvent>
#include <QPainter>
#include <QPainterPath>

LayerView::LayerView(QWidget *parent)
    : QWidget(parent) { }

void LayerView::setWantsLayer(bool wantsLayer) {
    wantsLayer_ = wantsLayer;
    update();
}

void LayerView::setLayerBackgroundColor(const QColor &color) {
    layerBackgroundColor_ = color;
    update();
}

void LayerView::setLowerCornerRadius(double radius) {
    lowerCornerRadius_ = radius;
    update();
}

void LayerView::paintEvent(QPaintEvent *event) {
    if (!wantsLayer_)
        return;
    QPainter painter(this);
    if (lowerCornerRadius_ <= 0) {
        painter.fillRect(event->rect(), layerBackgroundColor_);
        return;
    }
    // The upper corners of the rounded rectangle are pushed out of sight.
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath path;
    path.addRoundedRect(
        QRectF(rect()).adjusted(0, -2 * lowerCornerRadius_, 0, 0), lowerCornerRadius_, lowerCornerRadius_);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.setClipRect(event->rect());
    painter.fillPath(path, layerBackgroundColor_);
}
