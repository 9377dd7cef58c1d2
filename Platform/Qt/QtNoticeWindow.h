#pragma once

#include "Platform/NoticeWindow.h"

#include <QElapsedTimer>
#include <QPointer>
#include <QScreen>
#include <QWidget>

#include <optional>

class TitleStrip;

/// The notice window over QWidget: no frame of the window manager's, a title strip of its own, at the top
/// right of the screen that holds the pointer. At alpha 0 it is not mapped at all, so that it takes no click
/// on any desktop.
class QtNoticeWindow final : public QWidget, public NoticeWindow {
    Q_OBJECT

public:
    QtNoticeWindow();
    ~QtNoticeWindow() override;

    /// Closed by its close button or by the window manager: it never comes back.
    bool isClosed() const { return closed_; }

    void setAlphaValue(double alpha) override;
    double alphaValue() const override { return alpha_; }
    void setLevel(int level) override;
    void setTitlebarAppearsTransparent(bool transparent) override;
    void setBackgroundColor(const QColor &color) override;
    void makeKeyAndOrderFront() override;
    void invalidateCursorRectsForView(QWidget *view) override;

protected:
    void replaceContentView(QWidget *oldView, QWidget *newView) override;
    bool event(QEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void closeEvent(QCloseEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void setLightPalette();
    void commitLater();
    void commit();
    void fitToContent();
    void showContent();
    void arrange();
    void place();
    void placeAgain();
    void checkPlace();
    QScreen *screenOfPointer() const;
    void styleTitleStrip();
    bool keysCount() const;
    void announce();

    TitleStrip *titleStrip_;
    QPointer<QWidget> contentView_;
    QPointer<QScreen> placedOn_;
    double alpha_ = 0;
    bool transparentTitlebar_ = false;
    QColor backgroundColor_;
    bool closed_ = false;
    bool commitQueued_ = false;
    bool keyWanted_ = false;
    double cornerRadius_ = 0;
    bool dragged_ = false;
    std::optional<QPoint> askedPlace_; ///< until the window is seen
    bool contentIsNew_ = false;
    QElapsedTimer focused_;
};
