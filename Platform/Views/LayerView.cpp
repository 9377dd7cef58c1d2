#include "Platform/Views/LayerView.h"

#include <QPaintEvent>
#include <QPainter>

void LayerView::setLayerBackgroundColor(const QColor &color) {
    layerBackgroundColor_ = color;
    update();
}

void LayerView::paintEvent(QPaintEvent *event) {
    QPainter(this).fillRect(event->rect(), layerBackgroundColor_);
}
