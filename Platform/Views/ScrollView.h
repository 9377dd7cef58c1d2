#pragma once

#include <QScrollArea>

/// The part of a notice that scrolls when the screen is too small for it: as high as its content where there
/// is room.
class ScrollView : public QScrollArea {
    Q_OBJECT

public:
    explicit ScrollView(QWidget *parent = nullptr);
    ~ScrollView() override;

    /// Scrolls by a key (arrows, page keys, home, end); false when the key is none of them.
    bool scrollBy(int key);

    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return {}; }

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void fitContent();

    bool followsFinger_ = false;
};
