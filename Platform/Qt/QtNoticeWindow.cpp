#include "Platform/Qt/QtNoticeWindow.h"

#include "Platform/Qt/Desktop.h"
#include "Platform/Views/LayerView.h"
#include "Platform/Views/PushButton.h"
#include "Platform/Views/ScrollView.h"
#include "Platform/Views/TextField.h"
#include "Platform/Views/TitleStrip.h"

#include <QAccessible>
#include <QApplication>
#include <QCloseEvent>
#include <QCursor>
#include <QLayout>
#include <QPainter>
#include <QWindow>

#include <algorithm>

namespace {

constexpr int cardWidth = 460;
constexpr int screenMargin = 24;
constexpr double mostOfScreenHeight = 0.8;
constexpr double cornerRadius = 10;
constexpr std::chrono::milliseconds focusBeforeKeysCount(300);

// Until a notice sets one, and of a title bar that is not transparent.
const QColor initialBackgroundColor(30, 34, 52);

// After every ordinary event of this turn, among them the blocks of the main queue.
const auto commitEvent = static_cast<QEvent::Type>(QEvent::registerEventType());

} // namespace

QtNoticeWindow::QtNoticeWindow()
    : titleStrip_(new TitleStrip(this))
    , backgroundColor_(initialBackgroundColor) {
    setWindowFlags(Qt::Window | Qt::FramelessWindowHint);
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_QuitOnClose, false);
    setAttribute(Qt::WA_AlwaysShowToolTips);
    resize(cardWidth, TitleStrip::stripHeight);
    styleTitleStrip();
    connect(titleStrip_->closeButton(), &QAbstractButton::clicked, this, &QWidget::close);
    connect(qApp, &QGuiApplication::screenAdded, this, &QtNoticeWindow::placeAgain);
    connect(qApp, &QGuiApplication::screenRemoved, this, &QtNoticeWindow::placeAgain, Qt::QueuedConnection);
    connect(qApp, &QGuiApplication::primaryScreenChanged, this, &QtNoticeWindow::placeAgain);
}

QtNoticeWindow::~QtNoticeWindow() {
    // The controller owns its view and may outlive the window.
    if (contentView_)
        contentView_->setParent(nullptr);
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
    setLayoutDirection(newView->layoutDirection());
    newView->setParent(this);
    // As wide as it will be on the screen, so that what measures itself on appearing measures right.
    newView->setGeometry(0, TitleStrip::stripHeight, width(), newView->heightForWidth(width()));
    if (newView->layout())
        newView->layout()->activate();
    newView->installEventFilter(this);
    newView->show();
    // Not the close button: it is the only other control.
    if (auto *button = newView->findChild<PushButton *>())
        button->setFocus();
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
    fitToContent();
    const bool appears = !isVisible();
    if (appears) {
        if (!windowHandle()) {
            winId();
            Desktop::prepareWindow(windowHandle());
        }
        rounded_ = Desktop::isComposited(screen());
        titleStrip_->setUpperCornerRadius(rounded_ ? cornerRadius : 0);
        if (!placed_)
            place();
        Desktop::willMap(windowHandle(), keyWanted_);
        show();
    }
    if (auto *view = qobject_cast<LayerView *>(contentView_.data()))
        view->setLowerCornerRadius(rounded_ ? cornerRadius : 0);
    setWindowOpacity(alpha_);
    if (keyWanted_) {
        raise();
        activateWindow();
    }
    announce();
}

void QtNoticeWindow::announce() {
    QAccessibleEvent alert(this, QAccessible::Alert);
    QAccessible::updateAccessibility(&alert);
}

void QtNoticeWindow::fitToContent() {
    if (!contentView_)
        return;
    const auto available = screenOfPointer()->availableGeometry();
    const int fittedWidth = std::min(cardWidth, available.width() - 2 * screenMargin);
    const int mostHeight = static_cast<int>(available.height() * mostOfScreenHeight) - TitleStrip::stripHeight;
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
    const QRect before = geometry();
    setFixedSize(fitted);
    if (placed_ && isVisible()) {
        // Grown over the lower edge, it moves up as far as it must.
        const auto area = screen()->availableGeometry();
        const int lowest = area.bottom() + 1 - screenMargin - fitted.height();
        if (before.top() > lowest)
            move(before.left(), std::max(area.top(), lowest));
    }
}

QScreen *QtNoticeWindow::screenOfPointer() const {
    if (isVisible() && placedOn_)
        return placedOn_;
    auto *screen = QGuiApplication::screenAt(QCursor::pos());
    return screen ? screen : QGuiApplication::primaryScreen();
}

void QtNoticeWindow::place() {
    auto *screen = screenOfPointer();
    if (!screen)
        return;
    if (placedOn_ != screen) {
        if (placedOn_)
            placedOn_->disconnect(this);
        placedOn_ = screen;
        connect(screen, &QScreen::availableGeometryChanged, this, &QtNoticeWindow::placeAgain);
        connect(screen, &QScreen::logicalDotsPerInchChanged, this, &QtNoticeWindow::placeAgain);
    }
    const auto area = screen->availableGeometry();
    placed_ = true;
    move(area.right() + 1 - screenMargin - width(), area.top() + screenMargin);
}

// The screens have changed: wherever the user had dragged it may be gone.
void QtNoticeWindow::placeAgain() {
    if (closed_ || !placed_)
        return;
    if (placedOn_ && !QGuiApplication::screens().contains(placedOn_.data()))
        placedOn_ = nullptr;
    fitToContent();
    place();
}

bool QtNoticeWindow::keysCount() const {
    return isActiveWindow() && focused_.isValid() && focused_.hasExpired(focusBeforeKeysCount.count());
}

bool QtNoticeWindow::event(QEvent *event) {
    if (event->type() == commitEvent) {
        commit();
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
    return QWidget::eventFilter(watched, event);
}

void QtNoticeWindow::keyPressEvent(QKeyEvent *event) {
    const bool presses = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter
        || event->key() == Qt::Key_Space;
    if (auto *scrollView = contentView_ ? contentView_->findChild<ScrollView *>() : nullptr;
        scrollView && scrollView->scrollBy(event->key()))
        return;
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
    titleStrip_->setGeometry(0, 0, width(), TitleStrip::stripHeight);
    if (contentView_)
        contentView_->setGeometry(
            0, TitleStrip::stripHeight, width(), height() - TitleStrip::stripHeight);
}
