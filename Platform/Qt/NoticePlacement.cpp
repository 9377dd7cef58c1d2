#include "Platform/Qt/NoticePlacement.h"

#include "Platform/Desktop.h"

#include <QGuiApplication>
#include <QWidget>
#include <QWindow>

#include <algorithm>
#include <cmath>

namespace {

constexpr int screenMargin = 24;

/// A length that is whole in pixels of the screen, at a scale of quarters.
int wholeStep(double scale) {
    for (const int step : { 1, 2, 4 }) {
        if (std::fmod(step * scale, 1) == 0)
            return step;
    }
    return 1;
}

int roundedUp(int length, int step) {
    return (length + step - 1) / step * step;
}

} // namespace

NoticePlacement::NoticePlacement(QWidget &window, Desktop &desktop)
    : window_(window)
    , desktop_(desktop) {
    connect(qApp, &QGuiApplication::screenAdded, this, &NoticePlacement::placeAgain);
    connect(qApp, &QGuiApplication::screenRemoved, this, &NoticePlacement::placeAgain, Qt::QueuedConnection);
    connect(qApp, &QGuiApplication::primaryScreenChanged, this, &NoticePlacement::placeAgain);
}

void NoticePlacement::chooseScreen() {
    const auto screens = QGuiApplication::screens();
    auto *screen = screen_.data();
    if (dragged_)
        screen = QGuiApplication::screenAt(cardRect().translated(window_.pos()).center());
    else if (!window_.isVisible() || !screens.contains(screen))
        // Asked for only where it matters: that waits for the window system.
        screen = screens.size() > 1 ? desktop_.activeScreen() : nullptr;
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    if (screen == screen_)
        return;
    if (screen_)
        screen_->disconnect(this);
    screen_ = screen;
    if (!screen)
        return; // every screen is unplugged; it is placed when one comes back
    connect(screen, &QScreen::geometryChanged, this, &NoticePlacement::placeAgain);
    connect(screen, &QScreen::availableGeometryChanged, this, &NoticePlacement::placeAgain);
    connect(screen, &QScreen::logicalDotsPerInchChanged, this, &NoticePlacement::placeAgain);
}

QSize NoticePlacement::maxCardSize() const {
    return screen_ ? desktop_.workArea(*screen_).size() - QSize(2 * screenMargin, 2 * screenMargin) : QSize();
}

void NoticePlacement::setShadow(const QMargins &shadow) {
    shadow_ = shadow;
}

QRect NoticePlacement::cardRect() const {
    return window_.rect().marginsRemoved(shadow_);
}

void NoticePlacement::setCardSize(const QSize &size) {
    // Else the window is a pixel longer or shorter by its place, or is cut to the toolkit's rounded
    // increment.
    const int step = wholeStep(window_.devicePixelRatioF());
    window_.setSizeIncrement(step, step);
    cardSize_ = { roundedUp(size.width(), step), roundedUp(size.height(), step) };
    const QSize fitted = cardSize_.grownBy(shadow_);
    if (window_.size() == fitted)
        return;
    window_.setFixedSize(fitted);
    // By the card's own size: a stale report of the display may have shrunk the window for a moment, and what
    // lay outside would take no clicks.
    desktop_.setShadow(window_.windowHandle(), QRect({ shadow_.left(), shadow_.top() }, cardSize_), shadow_);
    if (!window_.isVisible())
        return;
    dragged_ ? moveIntoScreen() : place();
    checkPlace();
}

void NoticePlacement::windowWillShow() {
    dragged_ ? moveIntoScreen() : place();
}

void NoticePlacement::place() {
    if (!screen_)
        return;
    // By the card's own size: a stale report of the display may shrink the window for a moment.
    const auto area = desktop_.workArea(*screen_);
    askedPlace_ = QPoint(area.right() + 1 - screenMargin - cardSize_.width() - shadow_.left(),
        area.top() + screenMargin - shadow_.top());
    window_.move(*askedPlace_);
}

// Grown over an edge of where the user put it, it moves back as far as it must.
void NoticePlacement::moveIntoScreen() {
    if (!screen_)
        return;
    const auto area = desktop_.workArea(*screen_);
    const auto card = cardRect().translated(window_.pos());
    const auto kept
        = [](int place, int first, int last) { return std::clamp(place, first, std::max(first, last)); };
    const QPoint inside(kept(card.x(), area.left(), area.right() + 1 - card.width()),
        kept(card.y(), area.top(), area.bottom() + 1 - card.height()));
    askedPlace_.reset(); // the user's own place
    window_.move(window_.pos() + inside - card.topLeft());
}

// The screens have changed: wherever the user had dragged it may be gone.
void NoticePlacement::placeAgain() {
    dragged_ = false;
    if (!window_.isVisible())
        return;
    chooseScreen();
    Q_EMIT screenChanged();
    place();
}

void NoticePlacement::windowWasExposed() {
    if (askedPlace_)
        QMetaObject::invokeMethod(this, &NoticePlacement::checkPlace, Qt::QueuedConnection);
}

void NoticePlacement::windowHasSettled() {
    checkPlace();
    askedPlace_.reset();
}

// While a window manager takes the window over, Qt asks the display where it is, and may keep an answer that
// was true for a moment only: dragged, the window would jump away, and a screen reader would look for it
// elsewhere. Asked for once more the place comes out right, whatever the window manager makes of it.
void NoticePlacement::checkPlace() {
    // On the window below: the widget may know better already.
    if (askedPlace_ && window_.isVisible() && window_.windowHandle()->position() != *askedPlace_)
        window_.windowHandle()->setPosition(*askedPlace_);
}

void NoticePlacement::dragBegan() {
    dragged_ = true;
    askedPlace_.reset();
}

void NoticePlacement::dragBy(const QPoint &distance) {
    window_.move(window_.pos() + distance);
}
