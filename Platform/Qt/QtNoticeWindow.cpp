#include "Platform/Qt/QtNoticeWindow.h"

#include "Platform/Qt/NoticeAccessibility.h"
#include "Platform/Views/CardEdge.h"
#include "Platform/Views/ImageView.h"
#include "Platform/Views/LayOutNow.h"
#include "Platform/Views/PushButton.h"
#include "Platform/Views/ScrollView.h"
#include "Platform/Views/TextField.h"
#include "Platform/Views/TextScale.h"
#include "Platform/Views/TitleStrip.h"

#include <QAccessible>
#include <QApplication>
#include <QCloseEvent>
#include <QIcon>
#include <QLayout>
#include <QPainter>
#include <QRawFont>
#include <QScrollBar>
#include <QWindow>

#include <algorithm>
#include <chrono>
#include <utility>

namespace {

constexpr QSize iconSize(48, 48);

// So long a pause in typing that a key is meant for the notice.
constexpr std::chrono::milliseconds pauseBeforeKeysCount(700);

constexpr std::chrono::milliseconds timeToGetKeyboard(500);

// Until a notice sets one, and of a title bar that is not transparent.
const QColor initialBackgroundColor(30, 34, 52);

// After every ordinary event of this turn, among them the blocks of the main queue.
const auto commitEvent = static_cast<QEvent::Type>(QEvent::registerEventType());

// What may belong to a text or a menu elsewhere: an arrow, too, is followed by Return.
bool isTypingKey(int key) {
    return key != Qt::Key_Tab && key != Qt::Key_Backtab && key != Qt::Key_Escape;
}

bool isScrollKey(int key) {
    return key == Qt::Key_Up || key == Qt::Key_Down || key == Qt::Key_PageUp || key == Qt::Key_PageDown
        || key == Qt::Key_Home || key == Qt::Key_End;
}

QString headingOf(const QWidget &view) {
    const auto fields = view.findChildren<TextField *>();
    for (const auto *field : fields) {
        if (field->textStyle() == TextField::Style::Heading)
            return field->stringValue();
    }
    return {};
}

// What a window without a heading is called the storyboard has set.
QString titleOf(const QWidget &view) {
    constexpr qsizetype maxLength = 200;
    auto heading = headingOf(view).simplified().left(maxLength);
    // The toolkit's mark of a changed document, which twice stands for itself.
    heading.replace(QStringLiteral("[*]"), QStringLiteral("[*][*]"));
    return heading.isEmpty() ? view.windowTitle() : heading;
}

QIcon iconOf(const QWidget &view) {
    const auto *logo = view.findChild<ImageView *>();
    if (!logo || !logo->image())
        return {};
    const auto drawn = logo->image()->scaledToFit(iconSize, 1);
    QPixmap square(iconSize);
    square.fill(Qt::transparent);
    QPainter(&square).drawImage(
        (iconSize.width() - drawn.width()) / 2, (iconSize.height() - drawn.height()) / 2, drawn);
    return square;
}

// The desktop's font, with the letter forms of the language: in its place where it has such letters itself,
// in the forms of another language, and beside it where it has none.
QFont fontFor(const QLocale &locale, const Desktop &desktop) {
    QFont font;
    const auto family = desktop.fontFamilyFor(locale);
    if (family.isEmpty())
        return font;
    auto families = QApplication::font().families();
    const auto letters = locale.nativeLanguageName();
    const auto desktopFont = QRawFont::fromFont(QApplication::font());
    const bool hasSuchLetters = !letters.isEmpty() && desktopFont.supportsCharacter(letters[0]);
    families.insert(hasSuchLetters ? 0 : families.size(), family);
    font.setFamilies(families);
    return font;
}

} // namespace

QtNoticeWindow::QtNoticeWindow(Desktop &desktop)
    : desktop_(desktop)
    , placement_(*this, desktop)
    , titleStrip_(new TitleStrip(this))
    , edge_(new CardEdge(this))
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
    connect(titleStrip_->closeButton(), &QAbstractButton::clicked, this, &QtNoticeWindow::dismiss);
    connect(titleStrip_, &TitleStrip::dragged, this, &QtNoticeWindow::drag);
    connect(&placement_, &NoticePlacement::screenChanged, this, &QtNoticeWindow::fitToContent);
    settling_.setSingleShot(true);
    settling_.setInterval(pauseBeforeKeysCount);
    connect(&settling_, &QTimer::timeout, this, &QtNoticeWindow::settle);
    announcement_.setSingleShot(true);
    connect(&announcement_, &QTimer::timeout, this, [this] { NoticeAccessibility::announce(*this); });
    // The window system's part of it, so that a notice need only be filled and mapped.
    create();
    windowHandle()->installEventFilter(this);
    castShadow();
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
    // Not on the widget: that would take it off the screen.
    windowHandle()->setFlag(Qt::WindowStaysOnTopHint, level > normalWindowLevel);
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
    keyWanted_ = Keyboard::Take;
    commitLater();
}

void QtNoticeWindow::activate() {
    setAttribute(Qt::WA_KeyboardFocusChange); // the focus ring is seen from the beginning
    keyWanted_ = Keyboard::TakeForUser;
    commitLater();
}

void QtNoticeWindow::invalidateCursorRectsForView(QWidget *view) {
    if (view)
        view->unsetCursor();
}

void QtNoticeWindow::drag(const QPoint &distance) {
    placement_.dragBegan();
    if (desktop_.movesWindows() && windowHandle()->startSystemMove())
        titleStrip_->endDrag();
    else
        placement_.dragBy(distance);
}

void QtNoticeWindow::replaceContentView(QWidget *oldView, QWidget *newView) {
    keyWanted_ = Keyboard::Leave;
    if (oldView) {
        oldView->hide();
        oldView->setParent(nullptr);
    }
    contentView_ = newView;
    if (!newView)
        return;
    placement_.chooseScreen();
    setLayoutDirection(newView->layoutDirection());
    titleStrip_->closeButton()->setAccessibleName(newView->property(closeButtonNameProperty).toString());
    newView->setParent(this);
    newView->setFont(fontFor(newView->locale(), desktop_));
    // As wide as it will be on the screen, and as high as it can be, so that what measures itself on
    // appearing measures right.
    const auto max = maxContentSize();
    newView->setGeometry(QRect(cardRect().topLeft() + QPoint(0, TitleStrip::stripHeight), max));
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
    if (alpha_ <= 0)
        return takeOffScreen();
    const bool isNewContent = std::exchange(contentIsNew_, false) && contentView_;
    const bool takesKeyboard = keyWanted_ != Keyboard::Leave;
    if (isNewContent || takesKeyboard || !isVisible()) {
        const bool isMappedWell = desktop_.decideMapping(windowHandle(), keyWanted_);
        if (!isMappedWell)
            takeOffScreen(); // to be mapped in another way
    }
    const bool appears = !isVisible();
    if (appears)
        castShadow();
    if (isNewContent)
        layOutNow(*contentView_);
    fitToContent();
    if (isNewContent || appears)
        showContent();
    if (appears)
        putOnScreen(keyWanted_);
    if (isNewContent || appears) {
        // What is clicked on in a window that just appeared was clicked on in this notice.
        isShown_ = appears;
        desktop_.whenShown(windowHandle(), [this] { wasShown(); });
        announce();
    }
    if (takesKeyboard) {
        raise();
        desktop_.takeKeyboard(windowHandle(), std::exchange(keyWanted_, Keyboard::Leave));
    }
}

// A screen reader speaks a window that gets the keyboard; it is told of the others, and of one that does not
// get what it asked for.
void QtNoticeWindow::announce() {
    if (!QAccessible::isActive())
        return;
    const auto untilKeyboard = keyWanted_ != Keyboard::Leave && !isActiveWindow()
        ? timeToGetKeyboard
        : std::chrono::milliseconds::zero();
    announcement_.start(untilKeyboard);
}

void QtNoticeWindow::takeOffScreen() {
    announcement_.stop();
    giveKeyboardBack();
    hide();
}

void QtNoticeWindow::giveKeyboardBack() {
    if (isVisible())
        desktop_.willUnmap(windowHandle());
}

void QtNoticeWindow::putOnScreen(Keyboard keyboard) {
    placement_.windowWillShow();
    desktop_.willMap(windowHandle(), keyboard);
    raise(); // it is older than the windows of programs started since
    show();
    // Each view has asked to be painted once more, which would come after the first painting.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::UpdateLater);
    desktop_.didMap(windowHandle());
}

void QtNoticeWindow::showContent() {
    if (contentView_) {
        setWindowTitle(titleOf(*contentView_));
        arrange();
        contentView_->show();
        // Not the close button: it is the only other control.
        if (auto *button = contentView_->findChild<PushButton *>())
            button->setFocus();
    }
    setUpdatesEnabled(true);
    // When the window was exposed while updates were off, Qt takes what is dirty since then for something it
    // is about to paint, and never does.
    if (isVisible())
        QCoreApplication::postEvent(this, new QEvent(QEvent::UpdateRequest), Qt::LowEventPriority);
}

QSize QtNoticeWindow::maxContentSize() const {
    const auto max = placement_.maxCardSize();
    return { std::min(cardWidth(), max.width()), max.height() - TitleStrip::stripHeight };
}

void QtNoticeWindow::castShadow() {
    const bool isComposited = desktop_.isComposited();
    placement_.setShadow(isComposited ? CardEdge::shadowMargins : QMargins());
    edge_->setHasShadow(isComposited);
}

void QtNoticeWindow::fitToContent() {
    const auto max = maxContentSize();
    auto *layout = contentView_ ? contentView_->layout() : nullptr;
    if (!layout || max.isEmpty())
        return;
    layout->activate();
    const int height = layout->hasHeightForWidth() ? layout->totalHeightForWidth(max.width())
                                                   : layout->totalSizeHint().height();
    placement_.setCardSize({ max.width(), TitleStrip::stripHeight + std::min(height, max.height()) });
}

void QtNoticeWindow::arrange() {
    const auto card = cardRect();
    titleStrip_->setGeometry(card.x(), card.y(), card.width(), TitleStrip::stripHeight);
    if (contentView_)
        contentView_->setGeometry(card.adjusted(0, TitleStrip::stripHeight, 0, 0));
    edge_->setGeometry(rect());
    edge_->raise();
}

void QtNoticeWindow::wasShown() {
    isShown_ = true;
    quiet_.start();
    settling_.start();
}

// What nobody misses in a notice's first moments, and what a burst of messages does once.
void QtNoticeWindow::settle() {
    if (!isVisible())
        return;
    placement_.windowHasSettled();
    setWindowIcon(contentView_ ? iconOf(*contentView_) : QIcon());
    desktop_.acceptKeyboard(windowHandle());
}

bool QtNoticeWindow::event(QEvent *event) {
    if (event->type() == commitEvent) {
        commit();
        return true;
    }
    if (event->type() == QEvent::WindowActivate) {
        quiet_.start();
        announcement_.stop();
    }
    if (event->type() == QEvent::ThemeChange && isVisible()) {
        castShadow();
        fitToContent();
    }
    return QWidget::event(event);
}

bool QtNoticeWindow::eventFilter(QObject *watched, QEvent *event) {
    if (watched == contentView_ && event->type() == QEvent::LayoutRequest)
        commitLater();
    if (watched == windowHandle() && event->type() == QEvent::Expose)
        placement_.windowWasExposed();
    if (watched == windowHandle() && !isInputForIt(*event))
        return true;
    return QWidget::eventFilter(watched, event);
}

// Input from before the notice was on the screen was meant for something else.
bool QtNoticeWindow::isInputForIt(const QEvent &event) {
    switch (event.type()) {
    case QEvent::KeyPress:
        // Not isActiveWindow(): of a window that was hidden and shown again at once that stays false.
        keysCount_ = windowHandle()->isActive() && quiet_.isValid()
            && quiet_.hasExpired(pauseBeforeKeysCount.count());
        if (isTypingKey(static_cast<const QKeyEvent &>(event).key()))
            quiet_.start();
        return isShown_;
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonDblClick:
    case QEvent::TouchBegin:
        if (isShown_ && !isActiveWindow())
            desktop_.takeKeyboard(windowHandle(), Keyboard::Take);
        return isShown_;
    default:
        return true;
    }
}

void QtNoticeWindow::keyPressEvent(QKeyEvent *event) {
    // No other key: what the bar does not take would come back here.
    if (auto *scrollView = contentView_ ? contentView_->findChild<ScrollView *>() : nullptr;
        scrollView && isScrollKey(event->key())) {
        QCoreApplication::sendEvent(scrollView->verticalScrollBar(), event);
        return;
    }
    // Keys that were meant for another window do nothing.
    if (!keysCount_ || event->isAutoRepeat())
        return;
    if (event->key() == Qt::Key_Escape)
        return dismiss();
    const bool presses
        = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter || event->key() == Qt::Key_Space;
    auto *button = qobject_cast<QAbstractButton *>(focusWidget());
    if (!button && contentView_)
        button = contentView_->findChild<PushButton *>();
    if (presses && button && button->isEnabled())
        button->click();
}

void QtNoticeWindow::closeEvent(QCloseEvent *event) {
    closed_ = true;
    event->accept();
}

void QtNoticeWindow::resizeEvent(QResizeEvent *) {
    arrange();
}
