#pragma once

#include <QColor>
#include <QWidget>

class CloseButton;

/// The strip across the top of a notice, by which the user drags it, with the close button at its end.
class TitleStrip : public QWidget {
    Q_OBJECT

public:
    static constexpr int stripHeight = 28; ///< in pixels at scale 1

    explicit TitleStrip(QWidget *parent);

    void setGroundColor(const QColor &color);
    void setUpperCornerRadius(double radius);
    CloseButton *closeButton() const { return closeButton_; }

Q_SIGNALS:
    void dragged();

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void changeEvent(QEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;

private:
    void placeCloseButton();

    CloseButton *closeButton_;
    QColor groundColor_;
    double upperCornerRadius_ = 0;
    QPoint pressedAt_;
    bool pressed_ = false;
};
