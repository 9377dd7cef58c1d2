#pragma once

#include <QColor>
#include <QWidget>

/// A view with a ground colour behind its content: transparent until one is set.
class LayerView : public QWidget {
    Q_OBJECT

public:
    using QWidget::QWidget;

    void setLayerBackgroundColor(const QColor &color);
    QColor layerBackgroundColor() const { return layerBackgroundColor_; }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QColor layerBackgroundColor_ = Qt::transparent;
};
