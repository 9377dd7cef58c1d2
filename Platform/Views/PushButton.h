#pragma once

#include <QColor>
#include <QPushButton>

/// A notice's button: a text on a ground of one colour, which stays recognisable under the pointer, pressed,
/// focused and disabled. It is pressed by the pointer, by a screen reader, and by the keys that the window
/// hands it.
class PushButton : public QPushButton {
    Q_OBJECT

public:
    explicit PushButton(QWidget *parent = nullptr);

    void setLayerBackgroundColor(const QColor &color);
    QColor layerBackgroundColor() const { return layerBackgroundColor_; }
    void setCornerRadius(double radius);
    double cornerRadius() const { return cornerRadius_; }

    /// The ground and the text as they are painted in the button's present state.
    QColor groundColor() const;
    QColor textColor() const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void keyReleaseEvent(QKeyEvent *event) override;

    // A button that is disabled keeps the keyboard: a screen reader would name what gets or loses it.
    bool focusNextPrevChild(bool next) override { return !isEnabled() || QWidget::focusNextPrevChild(next); }

private:
    QColor layerBackgroundColor_ = QColor(30, 34, 52);
    double cornerRadius_ = 0;
};

/// The close button of the title strip: a cross, without a ground while it is at rest.
class CloseButton : public PushButton {
    Q_OBJECT

public:
    explicit CloseButton(QWidget *parent);

protected:
    void paintEvent(QPaintEvent *event) override;
};
