#pragma once

#include <QColor>

#include <memory>

class NoticeController;
class QWidget;

/// Window levels: the stacking above or among other programs' windows.
inline constexpr int normalWindowLevel = 0;
inline constexpr int floatingWindowLevel = 3;

/// What a screen reader is told that the close button does, in the view's language: a property of the content
/// view, set by the storyboard.
inline constexpr auto closeButtonNameProperty = "closeButtonName";

/// The one floating window. Opened once at launch with alpha 0, and never replaced. Main thread only.
///
/// What is set takes effect on the screen at the end of the present turn of the run loop, after the blocks
/// that stand in the main queue: nobody sees a window that is half filled.
class NoticeWindow {
public:
    virtual ~NoticeWindow() = default;

    /// 1.0 is visible; at 0.0 the user neither sees nor can click the window.
    virtual void setAlphaValue(double alpha) = 0;
    virtual double alphaValue() const = 0;

    /// `normalWindowLevel` or `floatingWindowLevel` (above other programs' ordinary windows).
    virtual void setLevel(int level) = 0;

    /// Whether the title bar shows the window's background colour instead of a look of its own.
    virtual void setTitlebarAppearsTransparent(bool transparent) = 0;
    virtual void setBackgroundColor(const QColor &color) = 0;

    /// Puts the window above its peers and asks for the keyboard. Alpha 0 and a closed window stay as they
    /// are.
    virtual void makeKeyAndOrderFront() = 0;

    /// Has the pointer's shape over the view's parts worked out anew.
    virtual void invalidateCursorRectsForView(QWidget *view) = 0;

    /// Makes the controller's view the content of the window and then calls its `viewWillAppear()`. The view
    /// of the controller before leaves the window, and that controller goes unless somebody else holds it.
    void setContentViewController(std::shared_ptr<NoticeController> controller);
    const std::shared_ptr<NoticeController> &contentViewController() const { return contentViewController_; }

protected:
    /// Called by `setContentViewController()`: takes the old view out, without deleting it, and puts the new
    /// one in. Either may be null.
    virtual void replaceContentView(QWidget *oldView, QWidget *newView) = 0;

private:
    std::shared_ptr<NoticeController> contentViewController_;
};
