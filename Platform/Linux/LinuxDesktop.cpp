#include "Platform/Linux/LinuxFonts.h"
#include "Platform/Qt/Desktop.h"

#include <QGuiApplication>
#include <QScreen>
#include <QStringList>
#include <QWindow>

#include <xcb/xcb.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <future>
#include <map>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace {

struct FreeReply {
    void operator()(void *reply) const { std::free(reply); }
};
template <class Reply>
using ReplyPointer = std::unique_ptr<Reply, FreeReply>;

xcb_connection_t *connection() {
    const auto *x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    return x11 ? x11->connection() : nullptr;
}

// Asked for once and all together: each answer alone would be waited for.
using Atoms = std::map<std::string_view, xcb_atom_t>;

Atoms internedAtoms(xcb_connection_t *x) {
    constexpr std::array<std::string_view, 7> names { "_NET_WM_CM_S0", "_NET_WM_DESKTOP", "_NET_WM_STATE",
        "_NET_WM_STATE_ABOVE", "_NET_WM_STATE_STICKY", "_NET_WM_STATE_FULLSCREEN", "_NET_ACTIVE_WINDOW" };
    std::array<xcb_intern_atom_cookie_t, names.size()> cookies {};
    for (std::size_t index = 0; index < names.size(); ++index)
        cookies.at(index) = xcb_intern_atom(
            x, 0, static_cast<std::uint16_t>(names.at(index).size()), names.at(index).data());
    Atoms atoms;
    for (std::size_t index = 0; index < names.size(); ++index) {
        const ReplyPointer<xcb_intern_atom_reply_t> reply(
            xcb_intern_atom_reply(x, cookies.at(index), nullptr));
        atoms[names.at(index)] = reply ? reply->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
    }
    return atoms;
}

xcb_atom_t atom(xcb_connection_t *x, std::string_view name) {
    static const auto atoms = internedAtoms(x);
    return atoms.at(name);
}

void setValue(xcb_connection_t *x, xcb_window_t window, std::string_view property, xcb_atom_t type,
    std::uint32_t value) {
    xcb_change_property(x, XCB_PROP_MODE_REPLACE, window, atom(x, property), type, 32, 1, &value);
}

/// Asks the window manager to change something of a mapped window.
void request(xcb_connection_t *x, xcb_window_t window, std::string_view message,
    const std::array<std::uint32_t, 5> &values) {
    xcb_client_message_event_t event {};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = window;
    event.type = atom(x, message);
    std::copy(values.begin(), values.end(), event.data.data32);
    std::array<char, 32> bytes {}; // events are of one size
    std::memcpy(bytes.data(), &event, sizeof(event));
    const auto root = xcb_setup_roots_iterator(xcb_get_setup(x)).data->root;
    xcb_send_event(
        x, 0, root, XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT, bytes.data());
}

void setDefault(const char *variable, const char *value) {
    if (qEnvironmentVariableIsEmpty(variable))
        qputenv(variable, value);
}

constexpr std::uint32_t allWorkspaces = 0xffffffff;

/// The values of a property of 32-bit numbers; none when it is missing.
std::vector<std::uint32_t> values(
    xcb_connection_t *x, xcb_window_t window, std::string_view property, xcb_atom_t type) {
    constexpr std::uint32_t most = 64;
    const ReplyPointer<xcb_get_property_reply_t> reply(
        xcb_get_property_reply(x, xcb_get_property(x, 0, window, atom(x, property), type, 0, most), nullptr));
    if (!reply || reply->format != 32)
        return {};
    const auto *first = static_cast<const std::uint32_t *>(xcb_get_property_value(reply.get()));
    return { first, first + reply->value_len };
}

bool activeWindowIsFullScreen(xcb_connection_t *x) {
    const auto root = xcb_setup_roots_iterator(xcb_get_setup(x)).data->root;
    const auto active = values(x, root, "_NET_ACTIVE_WINDOW", XCB_ATOM_WINDOW);
    if (active.empty() || active.front() == XCB_WINDOW_NONE)
        return false;
    const auto states = values(x, active.front(), "_NET_WM_STATE", XCB_ATOM_ATOM);
    return std::find(states.begin(), states.end(), atom(x, "_NET_WM_STATE_FULLSCREEN")) != states.end();
}

// Asked when a notice begins to be filled, so that the answer is there when it appears.
std::optional<xcb_get_selection_owner_cookie_t> compositorAsked;

xcb_get_selection_owner_cookie_t askForCompositor(xcb_connection_t *x) {
    return xcb_get_selection_owner(x, atom(x, "_NET_WM_CM_S0"));
}

std::future<void> &fontLoading() {
    static std::future<void> loading;
    return loading;
}

} // namespace

void Desktop::beginLoadingFonts() {
    // Where no thread can be had they are loaded when they are waited for.
    fontLoading() = std::async(std::launch::async | std::launch::deferred, LinuxFonts::load);
}

void Desktop::finishLoadingFonts() {
    if (fontLoading().valid())
        fontLoading().get();
}

void Desktop::prepare() {
    // Through XWayland where there is one: Wayland itself lets no ordinary window stay above the others.
    const bool hasX11 = !qEnvironmentVariableIsEmpty("DISPLAY");
    const bool hasWayland = !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
    setDefault("QT_QPA_PLATFORM", hasX11 && hasWayland ? "xcb;wayland" : hasX11 ? "xcb" : "wayland");
    // A notice draws no 3D and takes no text: neither the GL stack nor an input method is loaded.
    setDefault("QT_XCB_GL_INTEGRATION", "none");
    qputenv("QT_IM_MODULE", "none");
    // Through shared memory each repaint waits for the display to have read the one before: a wake-up more a
    // second for a window whose one line changes.
    setDefault("QT_XCB_NO_MITSHM", "1");
}

bool Desktop::isPresent() {
    const auto platform = qgetenv("QT_QPA_PLATFORM");
    const bool needsDisplay = platform.contains("xcb") || platform.contains("wayland");
    return !needsDisplay || !qEnvironmentVariableIsEmpty("DISPLAY")
        || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
}

QString Desktop::displayNames() {
    QStringList names;
    for (const auto *variable : { "DISPLAY", "WAYLAND_DISPLAY" }) {
        const auto value = qEnvironmentVariable(variable);
        if (!value.isEmpty())
            names << QLatin1String(variable) + u'=' + value;
    }
    return names.join(QStringLiteral(" and "));
}

void Desktop::willAppear() {
    auto *x = connection();
    if (!x)
        return;
    if (const auto asked = std::exchange(compositorAsked, std::nullopt))
        xcb_discard_reply(x, asked->sequence);
    compositorAsked = askForCompositor(x);
    xcb_flush(x);
}

bool Desktop::isComposited(const QScreen *) {
    auto *x = connection();
    if (!x)
        return true; // Wayland always is; an image in memory is as good
    const auto asked = std::exchange(compositorAsked, std::nullopt);
    const ReplyPointer<xcb_get_selection_owner_reply_t> reply(
        xcb_get_selection_owner_reply(x, asked ? *asked : askForCompositor(x), nullptr));
    return reply && reply->owner != XCB_WINDOW_NONE;
}

void Desktop::willMap(QWindow *window, bool takesFocus) {
    auto *x = connection();
    if (!x)
        return;
    const auto id = static_cast<xcb_window_t>(window->winId());
    // Set anew each time: a window manager takes them off a window that is withdrawn. Some look at the one,
    // some at the other.
    setValue(x, id, "_NET_WM_DESKTOP", XCB_ATOM_CARDINAL, allWorkspaces);
    setValue(x, id, "_NET_WM_STATE", XCB_ATOM_ATOM, atom(x, "_NET_WM_STATE_STICKY"));
    // Window managers keep a full-screen window that has the keyboard above the windows that are kept above.
    // A notice that takes the keyboard ends that; one that does not stands outside their order.
    const std::uint32_t unmanaged = !takesFocus && activeWindowIsFullScreen(x) ? 1 : 0;
    xcb_change_window_attributes(x, id, XCB_CW_OVERRIDE_REDIRECT, &unmanaged);
}

void Desktop::didMap(QWindow *window) {
    auto *x = connection();
    if (!x)
        return;
    // Asked for as well: a window manager that has not yet seen the window go takes off what was set for its
    // coming back.
    constexpr std::uint32_t add = 1;
    constexpr std::uint32_t fromApplication = 1;
    const auto id = static_cast<xcb_window_t>(window->winId());
    if (window->flags() & Qt::WindowStaysOnTopHint)
        request(x, id, "_NET_WM_STATE",
            { add, atom(x, "_NET_WM_STATE_ABOVE"), atom(x, "_NET_WM_STATE_STICKY"), fromApplication });
    request(x, id, "_NET_WM_DESKTOP", { allWorkspaces, fromApplication });
}

bool Desktop::canTakeFocus(QWindow *window) {
    auto *x = connection();
    if (!x)
        return true;
    const auto id = static_cast<xcb_window_t>(window->winId());
    const ReplyPointer<xcb_get_window_attributes_reply_t> reply(
        xcb_get_window_attributes_reply(x, xcb_get_window_attributes(x, id), nullptr));
    return !reply || reply->override_redirect == 0;
}
