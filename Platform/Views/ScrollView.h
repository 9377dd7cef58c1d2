#pragma once

#include <QScrollArea>

/// The part of a notice that scrolls when the screen is too small for it: as high as its content where there
/// is room.
class ScrollView : public QScrollArea {
    Q_OBJECT

public:
    explicit ScrollView(QWidget *parent = nullptr);
    ~ScrollView() override;

    /// Brings the content's height, and whether there is a scroll bar, up to date with its texts.
    void fitContent();

    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return {}; }

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    bool followsFinger_ = false;
};
