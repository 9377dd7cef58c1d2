#include "Platform/Qt/QtNoticeWindow.h"

#include "Platform/Qt/Desktop.h"
#include "Platform/Views/LayOutNow.h"
#include "Platform/Views/LayerView.h"
#include "Platform/Views/PushButton.h"
#include "Platform/Views/ScrollView.h"
#include "Platform/Views/TextField.h"
#include "Platform/Views/TextScale.h"
#include "Platform/Views/TitleStrip.h"

#include <QAccessible>
#include <QApplication>
#include <QCloseEvent>
#include <QCursor>
#include <QLayout>
#include <QPainter>
#include <QScrollBar>
#include <QWindow>

#include <algorithm>
#include <utility>

namespace {

constexpr int screenMargin = 24;
constexpr double mostOfScreenHeight = 0.8;
constexpr double cornerRadius = 10;
constexpr std::chrono::milliseconds focusBeforeKeysCount(300);

// Until a notice sets one, and of a title bar that is not transparent.
const QColor initialBackgroundColor(30, 34, 52);

// After every ordinary event of this turn, among them the blocks of the main queue.
const auto commitEvent = static_cast<QEvent::Type>(QEvent::registerEventType());
const auto checkPlaceEvent = static_cast<QEvent::Type>(QEvent::registerEventType());

} // namespace

QtNoticeWindow::QtNoticeWindow()
    : titleStrip_(new TitleStrip(this))
    , backgroundColor_(initialBackgroundColor) {
    // Above others from the beginning, as every notice will be: a change of it would have the window system's
    // part of the window made anew at the first notice, without what was set on it for its mapping.
    setWindowFlags(Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
    setAttribute(Qt::WA_TranslucentBackground);
    // Appearing never takes the keyboard; a notice that wants it asks for it.
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_QuitOnClose, false);
    setAttribute(Qt::WA_AlwaysShowToolTips);
    resize(cardWidth(), TitleStrip::stripHeight);
    styleTitleStrip();
    setLightPalette();
    connect(titleStrip_->closeButton(), &QAbstractButton::clicked, this, &QWidget::close);
    connect(titleStrip_, &TitleStrip::dragged, this, [this] {
        dragged_ = true;
        askedPlace_.reset();
    });
    connect(qApp, &QGuiApplication::screenAdded, this, &QtNoticeWindow::placeAgain);
    connect(qApp, &QGuiApplication::screenRemoved, this, &QtNoticeWindow::placeAgain, Qt::QueuedConnection);
    connect(qApp, &QGuiApplication::primaryScreenChanged, this, &QtNoticeWindow::placeAgain);
    // The window system's part of it, so that a notice need only be filled and mapped.
    create();
    windowHandle()->installEventFilter(this);
}

QtNoticeWindow::~QtNoticeWindow() {
    // The controller owns its view and may outlive the window.
    if (contentView_)
        contentView_->setParent(nullptr);
}

// The notice's ground is white on every desktop; what the style draws on it must fit. For the whole process
// and not for the window alone: each view of a notice would take over another palette when it comes into the
// window.
void QtNoticeWindow::setLightPalette() {
    QPalette light(QColor(236, 238, 243), QColor(255, 255, 255));
    light.setColor(QPalette::ToolTipBase, QColor(255, 255, 255));
    light.setColor(QPalette::ToolTipText, QColor(30, 34, 52));
    // The one colour that would differ between an active window and another one. Where one does, the toolkit
    // paints every view again each time the window gets or loses the keyboard.
    light.setColor(QPalette::Highlight, QColor(30, 34, 52));
    QApplication::setPalette(light);
}

void QtNoticeWindow::setAlphaValue(double alpha) {
    alpha_ = alpha;
    commitLater();
}

void QtNoticeWindow::setLevel(int level) {
    const bool above = level > normalWindowLevel;
    // On the window itself where there is one: a widget's flag would take it off the screen.
    if (auto *handle = windowHandle())
        handle->setFlag(Qt::WindowStaysOnTopHint, above);
    else
        setWindowFlag(Qt::WindowStaysOnTopHint, above);
}

void QtNoticeWindow::setTitlebarAppearsTransparent(bool transparent) {
    transparentTitlebar_ = transparent;
    styleTitleStrip();
}

void QtNoticeWindow::setBackgroundColor(const QColor &color) {
    backgroundColor_ = color;
    styleTitleStrip();
    update();
}

void QtNoticeWindow::styleTitleStrip() {
    titleStrip_->setGroundColor(transparentTitlebar_ ? backgroundColor_ : initialBackgroundColor);
}

void QtNoticeWindow::makeKeyAndOrderFront() {
    keyWanted_ = true;
    commitLater();
}

void QtNoticeWindow::invalidateCursorRectsForView(QWidget *view) {
    if (view)
        view->unsetCursor();
}

void QtNoticeWindow::replaceContentView(QWidget *oldView, QWidget *newView) {
    keyWanted_ = false;
    if (oldView) {
        oldView->hide();
        oldView->setParent(nullptr);
    }
    contentView_ = newView;
    if (!newView)
        return;
    if (!isVisible())
        Desktop::willAppear();
    setLayoutDirection(newView->layoutDirection());
    titleStrip_->closeButton()->setAccessibleName(newView->property(closeButtonNameProperty).toString());
    newView->setParent(this);
    // As wide as it will be on the screen, so that what measures itself on appearing measures right.
    newView->setGeometry(0, TitleStrip::stripHeight, width(), newView->height());
    newView->installEventFilter(this);
    contentIsNew_ = true;
    // Nothing is painted between the old content and the new one, filled.
    setUpdatesEnabled(false);
    commitLater();
}

void QtNoticeWindow::commitLater() {
    if (commitQueued_)
        return;
    commitQueued_ = true;
    QCoreApplication::postEvent(this, new QEvent(commitEvent), Qt::LowEventPriority);
}

void QtNoticeWindow::commit() {
    commitQueued_ = false;
    if (closed_)
        return;
    if (alpha_ <= 0) {
        hide();
        return;
    }
    const bool isNewContent = std::exchange(contentIsNew_, false) && contentView_;
    if (isNewContent)
        layOutNow(*contentView_);
    fitToContent();
    if (keyWanted_ && isVisible() && !Desktop::canTakeFocus(windowHandle()))
        hide(); // to be mapped in another way
    const bool appears = !isVisible();
    if (appears)
        cornerRadius_ = Desktop::isComposited(screen()) ? cornerRadius : 0;
    if (isNewContent || appears)
        showContent();
    if (appears) {
        if (!dragged_)
            place();
        askedPlace_ = pos();
        Desktop::willMap(windowHandle(), keyWanted_);
        raise(); // it is older than the windows of programs started since
        show();
        Desktop::didMap(windowHandle());
    }
    if (std::exchange(keyWanted_, false)) {
        raise();
        activateWindow();
    }
    if (isNewContent || appears)
        announce();
}

void QtNoticeWindow::showContent() {
    titleStrip_->setUpperCornerRadius(cornerRadius_);
    if (auto *view = qobject_cast<LayerView *>(contentView_.data()))
        view->setLowerCornerRadius(cornerRadius_);
    if (contentView_) {
        arrange();
        contentView_->show();
        // Not the close button: it is the only other control.
        if (auto *button = contentView_->findChild<PushButton *>())
            button->setFocus();
    }
    setUpdatesEnabled(true);
    // When the window was exposed while updates were off, the library takes what is dirty since then for
    // something it is about to paint, and never does.
    if (isVisible())
        QCoreApplication::postEvent(this, new QEvent(QEvent::UpdateRequest), Qt::LowEventPriority);
}

void QtNoticeWindow::announce() {
    if (!QAccessible::isActive())
        return;
    QAccessibleEvent shown(this, QAccessible::ObjectShow);
    QAccessible::updateAccessibility(&shown);
    QAccessibleEvent alert(this, QAccessible::Alert);
    QAccessible::updateAccessibility(&alert);
}

void QtNoticeWindow::fitToContent() {
    const auto *screen = screenOfPointer();
    if (!contentView_ || !screen)
        return;
    const auto available = screen->availableGeometry();
    const int fittedWidth = std::min(cardWidth(), available.width() - 2 * screenMargin);
    const int mostHeight
        = static_cast<int>(available.height() * mostOfScreenHeight) - TitleStrip::stripHeight;
    auto *layout = contentView_->layout();
    int height = contentView_->height();
    if (layout) {
        layout->activate();
        height = layout->hasHeightForWidth() ? layout->totalHeightForWidth(fittedWidth)
                                             : layout->totalSizeHint().height();
    }
    height = std::min(height, mostHeight);
    const QSize fitted(fittedWidth, TitleStrip::stripHeight + height);
    if (size() == fitted)
        return;
    setFixedSize(fitted);
    if (!isVisible())
        return;
    if (!dragged_)
        return place();
    // Grown over an edge of where the user put it, it moves back as far as it must.
    const int right = available.right() + 1 - fitted.width();
    const int bottom = available.bottom() + 1 - fitted.height();
    move(std::clamp(x(), available.left(), std::max(available.left(), right)),
        std::clamp(y(), available.top(), std::max(available.top(), bottom)));
}

QScreen *QtNoticeWindow::screenOfPointer() const {
    if (isVisible() && placedOn_)
        return placedOn_;
    // The pointer is asked for only where it matters: that waits for the window system.
    auto *screen
        = QGuiApplication::screens().size() > 1 ? QGuiApplication::screenAt(QCursor::pos()) : nullptr;
    return screen ? screen : QGuiApplication::primaryScreen();
}

void QtNoticeWindow::place() {
    auto *screen = screenOfPointer();
    if (!screen)
        return; // every screen is unplugged; it is placed when one comes back
    if (placedOn_ != screen) {
        if (placedOn_)
            placedOn_->disconnect(this);
        placedOn_ = screen;
        connect(screen, &QScreen::geometryChanged, this, &QtNoticeWindow::placeAgain);
        connect(screen, &QScreen::availableGeometryChanged, this, &QtNoticeWindow::placeAgain);
        connect(screen, &QScreen::logicalDotsPerInchChanged, this, &QtNoticeWindow::placeAgain);
    }
    const auto area = screen->availableGeometry();
    move(area.right() + 1 - screenMargin - width(), area.top() + screenMargin);
}

// The screens have changed: wherever the user had dragged it may be gone.
void QtNoticeWindow::placeAgain() {
    if (closed_ || !isVisible())
        return;
    if (placedOn_ && !QGuiApplication::screens().contains(placedOn_.data()))
        placedOn_ = nullptr;
    dragged_ = false;
    fitToContent();
    place();
}

// While a window manager takes the window over, the library asks the display where it is, and may keep an
// answer that was true for a moment only: dragged, the window would jump away, and a screen reader would look
// for it elsewhere. Asked for once more the place comes out right, whatever the window manager makes of it.
void QtNoticeWindow::checkPlace() {
    const auto place = std::exchange(askedPlace_, std::nullopt);
    // On the window below: the widget may know better already.
    if (place && isVisible() && windowHandle()->position() != *place)
        windowHandle()->setPosition(*place);
}

bool QtNoticeWindow::keysCount() const {
    return isActiveWindow() && focused_.isValid() && focused_.hasExpired(focusBeforeKeysCount.count());
}

bool QtNoticeWindow::event(QEvent *event) {
    if (event->type() == commitEvent) {
        commit();
        return true;
    }
    if (event->type() == checkPlaceEvent) {
        checkPlace();
        return true;
    }
    if (event->type() == QEvent::WindowActivate)
        focused_.start();
    else if (event->type() == QEvent::WindowDeactivate)
        focused_.invalidate();
    return QWidget::event(event);
}

bool QtNoticeWindow::eventFilter(QObject *watched, QEvent *event) {
    if (watched == contentView_ && event->type() == QEvent::LayoutRequest)
        commitLater();
    if (event->type() == QEvent::Expose && askedPlace_)
        QCoreApplication::postEvent(this, new QEvent(checkPlaceEvent), Qt::LowEventPriority);
    return QWidget::eventFilter(watched, event);
}

void QtNoticeWindow::keyPressEvent(QKeyEvent *event) {
    const bool presses
        = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter || event->key() == Qt::Key_Space;
    if (auto *scrollView = contentView_ ? contentView_->findChild<ScrollView *>() : nullptr;
        scrollView && !presses) {
        QCoreApplication::sendEvent(scrollView->verticalScrollBar(), event);
        if (event->isAccepted())
            return;
    }
    // Keys that were meant for the window before this one took the focus do nothing.
    if (!presses || !keysCount() || event->isAutoRepeat())
        return;
    auto *button = qobject_cast<QAbstractButton *>(focusWidget());
    if (!button && contentView_)
        button = contentView_->findChild<PushButton *>();
    if (button && button->isEnabled())
        button->click();
}

void QtNoticeWindow::closeEvent(QCloseEvent *event) {
    closed_ = true;
    event->accept();
}

void QtNoticeWindow::resizeEvent(QResizeEvent *) {
    arrange();
}

void QtNoticeWindow::arrange() {
    titleStrip_->setGeometry(0, 0, width(), TitleStrip::stripHeight);
    if (contentView_)
        contentView_->setGeometry(0, TitleStrip::stripHeight, width(), height() - TitleStrip::stripHeight);
}
