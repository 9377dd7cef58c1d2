#include "Platform/Views/LayerView.h"

#include <QPaintEvent>
#include <QPainter>

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

void LayerView::paintEvent(QPaintEvent *event) {
    if (wantsLayer_)
        QPainter(this).fillRect(event->rect(), layerBackgroundColor_);
}
