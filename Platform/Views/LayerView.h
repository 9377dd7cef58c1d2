#pragma once

#include <QColor>
#include <QWidget>

/// A view with a layer behind its content: one ground colour.
class LayerView : public QWidget {
    Q_OBJECT

public:
    explicit LayerView(QWidget *parent = nullptr);

    /// Until the layer is turned on the view paints nothing of its own.
    void setWantsLayer(bool wantsLayer);
    void setLayerBackgroundColor(const QColor &color);
    QColor layerBackgroundColor() const { return layerBackgroundColor_; }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    bool wantsLayer_ = false;
    QColor layerBackgroundColor_ = Qt::transparent;
};
