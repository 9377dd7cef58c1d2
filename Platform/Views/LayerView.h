#pragma once

#include <QColor>
#include <QWidget>

/// A view with a layer behind its content: one ground colour, and rounded corners where it ends the window.
class LayerView : public QWidget {
    Q_OBJECT

public:
    explicit LayerView(QWidget *parent = nullptr);

    /// Until the layer is turned on the view paints nothing of its own.
    void setWantsLayer(bool wantsLayer);
    void setLayerBackgroundColor(const QColor &color);
    QColor layerBackgroundColor() const { return layerBackgroundColor_; }

    /// Rounds the two lower corners, where this view is the lower end of a rounded window.
    void setLowerCornerRadius(double radius);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    bool wantsLayer_ = false;
    QColor layerBackgroundColor_ = Qt::transparent;
    double lowerCornerRadius_ = 0;
};
