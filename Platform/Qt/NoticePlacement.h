#pragma once

#include <QMargins>
#include <QObject>
#include <QPointer>
#include <QScreen>

#include <optional>

class Desktop;
class QWidget;

/// Where the notice's window stands: at the top right of the screen that the user works on, until the user
/// drags it. Places and sizes are those of the card; around it the window may have a shadow.
class NoticePlacement final : public QObject {
    Q_OBJECT

public:
    /// @param window   outlives the placement
    /// @param desktop  outlives the placement
    NoticePlacement(QWidget &window, Desktop &desktop);

    /// Chooses the screen of a notice that is about to be filled. A visible one stays on its screen.
    void chooseScreen();

    /// The largest card that leaves a margin to each side of the screen. Empty while there is no screen.
    QSize maxCardSize() const;

    void setShadow(const QMargins &shadow);
    QRect cardRect() const; ///< in the window

    /// Sizes the window for a card of this size, or up to 3 more where a fraction of the screen's pixels
    /// would be left over; a visible one keeps its place.
    void setCardSize(const QSize &size);

    /// Moves the window to where it is to appear.
    void windowWillShow();
    void windowWasExposed();
    /// The window manager has had its time: the place is looked at once more, and then left alone.
    void windowHasSettled();

    /// The user drags it, or lets the window manager do so: it stays where it is put until the screens
    /// change.
    void dragBegan();
    void dragBy(const QPoint &distance);

Q_SIGNALS:
    /// The card may have to fit another screen.
    void screenChanged();

private:
    void place();
    void moveIntoScreen();
    void placeAgain();
    void checkPlace();

    QWidget &window_;
    Desktop &desktop_;
    QPointer<QScreen> screen_;
    QMargins shadow_;
    QSize cardSize_;
    bool dragged_ = false;
    std::optional<QPoint> askedPlace_; ///< until the window has settled
};
