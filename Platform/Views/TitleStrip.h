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
    CloseButton *closeButton() const { return closeButton_; }

    /// Somebody else follows the pointer from here on.
    void endDrag() { pressed_ = false; }

Q_SIGNALS:
    /// @param distance  from where the pointer was before
    void dragged(const QPoint &distance);

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
    QPoint pointer_;
    bool pressed_ = false;
    bool isDragged_ = false;
};
