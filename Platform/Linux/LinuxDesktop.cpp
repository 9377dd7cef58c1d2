#include "Platform/Desktop.h"
#include "Platform/Linux/LinuxFonts.h"
#include "Platform/Linux/X11.h"

#include <QAbstractNativeEventFilter>
#include <QEvent>
#include <QGuiApplication>
#include <QPointer>
#include <QScreen>
#include <QStringList>
#include <QWindow>

#include <algorithm>
#include <future>
#include <optional>
#include <utility>

#include <malloc.h>

namespace {

constexpr std::uint32_t allWorkspaces = 0xffffffff;

void setDefault(const char *variable, const char *value) {
    if (qEnvironmentVariableIsEmpty(variable))
        qputenv(variable, value);
}

QRect nativeRectOf(const QScreen &screen) {
    return { screen.geometry().topLeft(), screen.geometry().size() * screen.devicePixelRatio() };
}

QScreen *screenAtNative(const QPoint &point) {
    const auto screens = QGuiApplication::screens();
    for (auto *screen : screens) {
        if (nativeRectOf(*screen).contains(point))
            return screen;
    }
    return nullptr;
}

QPoint nativePlaceOf(const QWindow &window) {
    const auto origin = window.screen()->geometry().topLeft();
    return origin + (window.position() - origin) * window.devicePixelRatio();
}

/// How a window manager treats a notice.
enum class WindowManager {
    KeepsNotices, ///< of the type notification, above everything, also above a full-screen window
    CoversNotices, ///< by a full-screen window
    ArrangesNotices, ///< like every other window: in tiles, in its own places, with its own title bar
    TakesFocusBack, ///< arranges them, and lets no window that it does not manage have the input focus
};

WindowManager windowManagerOf(const QByteArray &name) {
    const auto isAnyOf = [&name](std::initializer_list<const char *> beginnings) {
        return std::any_of(beginnings.begin(), beginnings.end(),
            [&name](const char *beginning) { return name.startsWith(beginning); });
    };
    if (isAnyOf({ "Metacity (Marco)" }))
        return WindowManager::CoversNotices;
    if (isAnyOf({ "KWin", "Xfwm4", "GNOME Shell", "Mutter", "Muffin", "Metacity" }))
        return WindowManager::KeepsNotices;
    if (isAnyOf({ "wlroots wm" }))
        return WindowManager::TakesFocusBack;
    if (isAnyOf({ "awesome", "i3" }))
        return WindowManager::ArrangesNotices;
    return WindowManager::CoversNotices;
}

class LinuxDesktop final : public Desktop, private QAbstractNativeEventFilter {
public:
    void prepare() override;
    void beginLoadingFonts() override;
    bool finishLoadingFonts() override;
    QString fontFamilyFor(const QLocale &locale) const override { return LinuxFonts::familyFor(locale); }
    bool isPresent() const override;
    QString displayNames() const override;
    bool isComposited() override;
    QScreen *activeScreen() override;
    QRect workArea(const QScreen &screen) override;
    bool decideMapping(QWindow *window, Keyboard keyboard) override;
    // Many window managers refuse to move a notification.
    bool movesWindows() const override { return !X11().isConnected(); }
    void setShadow(QWindow *window, const QRect &card, const QMargins &shadow) override;
    void willMap(QWindow *window, Keyboard keyboard) override;
    void didMap(QWindow *window) override;
    void willUnmap(QWindow *window) override;
    void takeKeyboard(QWindow *window, Keyboard keyboard) override;
    void acceptKeyboard(QWindow *window) override;
    void whenShown(QWindow *window, std::function<void()> shown) override;

private:
    bool nativeEventFilter(const QByteArray &kind, void *message, qintptr *) override;
    WindowManager windowManager(const X11 &x);

    std::future<bool> fontLoading_;
    std::optional<bool> isComposited_;
    std::optional<X11::Window> windowManagerCheck_;
    WindowManager windowManager_ = WindowManager::CoversNotices;
    bool isManaged_ = true;
    Keyboard mappedFor_ = Keyboard::Leave;
    X11::Window focusBefore_ = X11::noWindow; ///< what had the keyboard before an unmanaged notice took it
    std::function<void()> shown_;
    int pendingMarks_ = 0; ///< sent and not yet answered
    QPointer<QWindow> notice_; ///< once it was mapped
    QPoint place_; ///< where it was mapped, in the display's pixels
};

void LinuxDesktop::prepare() {
    // Through XWayland where there is one: Wayland itself lets no ordinary window stay above the others.
    const bool hasX11 = !qEnvironmentVariableIsEmpty("DISPLAY");
    const bool hasWayland = !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
    setDefault("QT_QPA_PLATFORM", hasX11 && hasWayland ? "xcb;wayland" : hasX11 ? "xcb" : "wayland");
    // A notice draws no 3D and takes no text: neither the GL stack nor an input method is loaded.
    setDefault("QT_XCB_GL_INTEGRATION", "none");
    qputenv("QT_IM_MODULE", "none");
    // Nor does it use a portal: a newer Qt would wait for the session bus to ask for one.
    setDefault("QT_NO_XDG_DESKTOP_PORTAL", "1");
    // Through shared memory each repaint waits for the display to have read the one before: a wake-up more a
    // second for a window whose one line changes.
    setDefault("QT_XCB_NO_MITSHM", "1");
}

void LinuxDesktop::beginLoadingFonts() {
    // What the threads of the start leave behind stands in one heap with everything else, without gaps.
    mallopt(M_ARENA_MAX, 1);
    // Where no thread can be had they are loaded when they are waited for.
    fontLoading_ = std::async(std::launch::async | std::launch::deferred, LinuxFonts::load);
}

bool LinuxDesktop::finishLoadingFonts() {
    return fontLoading_.get();
}

bool LinuxDesktop::isPresent() const {
    const auto platform = qgetenv("QT_QPA_PLATFORM");
    const bool needsDisplay = platform.contains("xcb") || platform.contains("wayland");
    return !needsDisplay || !qEnvironmentVariableIsEmpty("DISPLAY")
        || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
}

QString LinuxDesktop::displayNames() const {
    QStringList names;
    for (const auto *variable : { "DISPLAY", "WAYLAND_DISPLAY" }) {
        const auto value = qEnvironmentVariable(variable);
        if (!value.isEmpty())
            names << QLatin1String(variable) + u'=' + value;
    }
    return names.join(QStringLiteral(" and "));
}

bool LinuxDesktop::isComposited() {
    if (!isComposited_) {
        QCoreApplication::instance()->installNativeEventFilter(this);
        const X11 x;
        // Wayland always is; an image in memory is as good.
        isComposited_ = !x.isConnected() || x.hasCompositor();
    }
    return *isComposited_;
}

QScreen *LinuxDesktop::activeScreen() {
    const X11 x;
    if (!x.isConnected())
        return nullptr;
    const auto frame = x.frameOf(x.activeWindow());
    return frame ? screenAtNative(frame->center()) : nullptr;
}

// The window manager's one work area spans all screens, so that Qt leaves it out where there are several. It
// is right for the primary one, which has the panels.
QRect LinuxDesktop::workArea(const QScreen &screen) {
    const X11 x;
    const bool hasPanels = &screen == QGuiApplication::primaryScreen();
    if (!x.isConnected() || QGuiApplication::screens().size() == 1 || !hasPanels)
        return screen.availableGeometry();
    const auto native = nativeRectOf(screen);
    const auto area = native & x.workArea();
    if (area.isEmpty())
        return screen.availableGeometry();
    const double scale = screen.devicePixelRatio();
    return { native.topLeft() + (area.topLeft() - native.topLeft()) / scale, area.size() / scale };
}

WindowManager LinuxDesktop::windowManager(const X11 &x) {
    const auto check = x.windowManagerCheck();
    if (windowManagerCheck_ != check) {
        windowManagerCheck_ = check;
        windowManager_ = windowManagerOf(x.nameOf(check));
    }
    return windowManager_;
}

bool LinuxDesktop::decideMapping(QWindow *window, Keyboard keyboard) {
    const X11 x;
    if (!x.isConnected())
        return true;
    const bool wasManaged = isManaged_;
    const auto manager = windowManager(x);
    isManaged_ = manager == WindowManager::KeepsNotices;
    if (manager == WindowManager::CoversNotices) {
        // A notice with the keyboard hides which other window is in use.
        const auto active = x.activeWindow();
        isManaged_ = active == window->winId() || x.focus() == window->winId()
            ? wasManaged
            : !x.hasState(active, "_NET_WM_STATE_FULLSCREEN");
    }
    // Some give the keyboard to an unmanaged window only when it appears.
    const bool canTakeKeyboard = isManaged_ || keyboard == Keyboard::Leave
        || (keyboard == Keyboard::Take && mappedFor_ != Keyboard::Leave);
    return isManaged_ == wasManaged && canTakeKeyboard;
}

void LinuxDesktop::setShadow(QWindow *window, const QRect &card, const QMargins &shadow) {
    const X11 x;
    if (!x.isConnected())
        return window->setMask(card); // under Wayland what takes clicks, and not what is seen
    const auto id = static_cast<X11::Window>(window->winId());
    const double scale = window->devicePixelRatio();
    const auto native = [scale](int pixels) { return qRound(pixels * scale); };
    const auto extent = [&native](int pixels) { return static_cast<std::uint32_t>(native(pixels)); };
    if (shadow.isNull())
        x.remove(id, "_GTK_FRAME_EXTENTS");
    else
        x.setNumbers(id, "_GTK_FRAME_EXTENTS", XCB_ATOM_CARDINAL,
            { extent(shadow.left()), extent(shadow.right()), extent(shadow.top()), extent(shadow.bottom()) });
    x.setInputRectangle(
        id, { native(card.x()), native(card.y()), native(card.width()), native(card.height()) });
}

void LinuxDesktop::willMap(QWindow *window, Keyboard keyboard) {
    const X11 x;
    if (!x.isConnected())
        return;
    const auto id = static_cast<X11::Window>(window->winId());
    // Set each time: a window manager takes some of them off a window that is withdrawn. Some look at the
    // one for all workspaces, some at the other.
    x.setNumbers(id, "_NET_WM_DESKTOP", XCB_ATOM_CARDINAL, { allWorkspaces });
    x.setAtoms(id, "_NET_WM_STATE",
        { "_NET_WM_STATE_ABOVE", "_NET_WM_STATE_STICKY", "_NET_WM_STATE_SKIP_TASKBAR",
            "_NET_WM_STATE_SKIP_PAGER" });
    // What would get the keyboard without the input focus would only swallow the keys.
    const bool isFocusedByType = !isManaged_ && keyboard != Keyboard::Leave
        && (keyboard == Keyboard::TakeForUser || windowManager_ != WindowManager::TakesFocusBack);
    x.setAtoms(id, "_NET_WM_WINDOW_TYPE",
        isFocusedByType ? std::vector<std::string_view> { "_NET_WM_WINDOW_TYPE_NORMAL" }
                        : std::vector<std::string_view> { "_KDE_NET_WM_WINDOW_TYPE_CRITICAL_NOTIFICATION",
                            "_NET_WM_WINDOW_TYPE_NOTIFICATION" });
    mappedFor_ = keyboard;
    notice_ = window;
    place_ = nativePlaceOf(*window);
    x.takeFocusFromUserOnly(id);
    x.setAcceptsFocus(id, keyboard != Keyboard::Leave);
    x.setUnmanaged(id, !isManaged_);
}

void LinuxDesktop::didMap(QWindow *window) {
    const X11 x;
    if (!x.isConnected() || !isManaged_)
        return;
    // Asked for as well: a window manager that has not yet seen the window go takes off what was set for its
    // coming back.
    const auto id = static_cast<X11::Window>(window->winId());
    if (window->flags() & Qt::WindowStaysOnTopHint)
        x.changeState(id, X11::Change::Add, "_NET_WM_STATE_ABOVE", "_NET_WM_STATE_STICKY");
    x.changeState(id, X11::Change::Add, "_NET_WM_STATE_SKIP_TASKBAR", "_NET_WM_STATE_SKIP_PAGER");
    x.request(id, "_NET_WM_DESKTOP", { allWorkspaces, X11::fromApplication });
}

// The window manager gives the keyboard back for the windows that it manages.
void LinuxDesktop::willUnmap(QWindow *window) {
    const auto before = std::exchange(focusBefore_, X11::noWindow);
    if (before == X11::noWindow)
        return;
    if (const X11 x; x.focus() == window->winId())
        x.setFocus(before);
}

void LinuxDesktop::takeKeyboard(QWindow *window, Keyboard keyboard) {
    const X11 x;
    if (!x.isConnected())
        return window->requestActivate();
    // A window that loses the focus under a click lets go of its pressed button.
    if (windowManager_ == WindowManager::TakesFocusBack) {
        if (keyboard == Keyboard::TakeForUser)
            window->setKeyboardGrabEnabled(true); // until it is unmapped
        return;
    }
    const auto id = static_cast<X11::Window>(window->winId());
    x.setAcceptsFocus(id, true);
    if (isManaged_ && x.windowManagerCheck() != X11::noWindow)
        return x.request(id, "_NET_ACTIVE_WINDOW", { X11::fromUser, XCB_CURRENT_TIME, X11::noWindow });
    if (const auto focus = x.focus(); focus != id)
        focusBefore_ = focus;
    x.setFocus(id);
}

void LinuxDesktop::acceptKeyboard(QWindow *window) {
    const X11 x;
    if (!x.isConnected())
        return;
    const auto id = static_cast<X11::Window>(window->winId());
    x.setAcceptsFocus(id, true);
    // Some mark every window that did not get the keyboard, and do so after it is mapped.
    if (isManaged_)
        x.changeState(id, X11::Change::Remove, "_NET_WM_STATE_DEMANDS_ATTENTION", "");
}

// The display answers a change of a property behind all input that it has sent before.
void LinuxDesktop::whenShown(QWindow *window, std::function<void()> shown) {
    const X11 x;
    if (!x.isConnected())
        return shown();
    ++pendingMarks_;
    shown_ = std::move(shown);
    x.setNumbers(static_cast<X11::Window>(window->winId()), X11::shownMark, XCB_ATOM_CARDINAL, { 1 });
    x.flush();
}

bool LinuxDesktop::nativeEventFilter(const QByteArray &, void *message, qintptr *) {
    const X11 x;
    const auto *event = static_cast<const xcb_generic_event_t *>(message);
    const auto compositorChange = x.isConnected() ? x.compositorChange(event) : std::nullopt;
    if (compositorChange)
        isComposited_ = compositorChange;
    if (!notice_)
        return false;
    if (compositorChange)
        QCoreApplication::postEvent(notice_, new QEvent(QEvent::ThemeChange));
    const auto id = static_cast<X11::Window>(notice_->winId());
    if (x.isChangeOf(event, id, X11::shownMark) && --pendingMarks_ == 0)
        shown_();
    // A window manager that has not yet let go of a window when it is mapped as unmanaged takes it away late.
    if (x.isTakenAway(event, id) && !isManaged_ && notice_->isVisible())
        x.mapAt(id, place_);
    // One that lets go of a window late does so over its being mapped again.
    if (isManaged_ && notice_->isVisible() && x.isChangeOf(event, id, "WM_STATE") && !x.isManaged(id)) {
        willMap(notice_, mappedFor_);
        x.mapAt(id, place_);
        didMap(notice_);
    }
    // Some window managers mark every window that comes up without the keyboard, after it was mapped.
    constexpr auto demand = "_NET_WM_STATE_DEMANDS_ATTENTION";
    if (x.isChangeOf(event, id, "_NET_WM_STATE") && isManaged_ && x.hasState(id, demand))
        x.changeState(id, X11::Change::Remove, demand, "");
    return false;
}

} // namespace

std::unique_ptr<Desktop> makeDesktop() {
    return std::make_unique<LinuxDesktop>();
}
