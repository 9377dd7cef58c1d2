#pragma once

#include "Platform/Desktop.h"
#include "Platform/NoticeWindow.h"
#include "Platform/Qt/NoticePlacement.h"

#include <QElapsedTimer>
#include <QPointer>
#include <QTimer>
#include <QWidget>

class CardEdge;
class TitleStrip;

/// The notice window over QWidget, without a frame of the window manager's: a title strip of its own, the
/// content below it, an edge around both. At alpha 0 it is not mapped at all, so that it takes no click on
/// any desktop.
class QtNoticeWindow final : public QWidget, public NoticeWindow {
    Q_OBJECT

public:
    /// @param desktop  outlives the window
    explicit QtNoticeWindow(Desktop &desktop);
    ~QtNoticeWindow() override;

    /// Closed by the window manager: it never comes back.
    bool isClosed() const { return closed_; }

    /// The user turns to the notice with the keyboard. Nothing when none is shown.
    void activate();

    /// To the window that had it, where no window manager does so when this one goes.
    void giveKeyboardBack();

    /// The notice without its shadow.
    QRect cardRect() const { return placement_.cardRect(); }

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
    void styleTitleStrip();
    void drag(const QPoint &distance);
    void dismiss() { setAlphaValue(0.0); }
    void commitLater();
    void commit();
    void takeOffScreen();
    void putOnScreen(Keyboard keyboard);
    void castShadow();
    void fitToContent();
    void showContent();
    void arrange();
    QSize maxContentSize() const;
    void announce();
    void wasShown();
    void settle();
    bool isInputForIt(const QEvent &event);

    Desktop &desktop_;
    NoticePlacement placement_;
    TitleStrip *titleStrip_;
    CardEdge *edge_;
    QPointer<QWidget> contentView_;
    double alpha_ = 0;
    bool transparentTitlebar_ = false;
    QColor backgroundColor_;
    bool closed_ = false;
    bool commitQueued_ = false;
    Keyboard keyWanted_ = Keyboard::Leave;
    bool contentIsNew_ = false;
    bool isShown_ = false; ///< all input from here on came after the present content
    QTimer settling_;
    QTimer announcement_;
    QElapsedTimer quiet_; ///< since the notice was shown, got the keyboard, or was typed into
    bool keysCount_ = false;
};
