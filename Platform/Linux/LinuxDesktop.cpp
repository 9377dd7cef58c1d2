#include "Platform/Qt/Desktop.h"

#include <QByteArray>
#include <QGuiApplication>
#include <QScreen>
#include <QWindow>

#include <xcb/xcb.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <memory>

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

xcb_atom_t atom(xcb_connection_t *x, const QByteArray &name) {
    const ReplyPointer<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
        x, xcb_intern_atom(x, 0, static_cast<std::uint16_t>(name.size()), name.constData()), nullptr));
    return reply ? reply->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
}

void setCardinal(xcb_connection_t *x, const QWindow *window, const QByteArray &property, std::uint32_t value) {
    xcb_change_property(x, XCB_PROP_MODE_REPLACE, static_cast<xcb_window_t>(window->winId()), atom(x, property),
        XCB_ATOM_CARDINAL, 32, 1, &value);
}

void setDefault(const char *variable, const char *value) {
    if (qEnvironmentVariableIsEmpty(variable))
        qputenv(variable, value);
}

constexpr std::uint32_t allWorkspaces = 0xffffffff;

} // namespace

void Desktop::prepare() {
    // Through XWayland where there is one: Wayland itself lets no ordinary window stay above the others.
    if (!qEnvironmentVariableIsEmpty("DISPLAY"))
        setDefault("QT_QPA_PLATFORM", "xcb;wayland");
    else
        setDefault("QT_QPA_PLATFORM", "wayland");
    // A notice draws no 3D and takes no text: neither the GL stack nor an input method is loaded.
    setDefault("QT_XCB_GL_INTEGRATION", "none");
    qputenv("QT_IM_MODULE", "none");
}

bool Desktop::isPresent() {
    const auto platform = qgetenv("QT_QPA_PLATFORM");
    const bool needsDisplay = platform.contains("xcb") || platform.contains("wayland");
    return !needsDisplay || !qEnvironmentVariableIsEmpty("DISPLAY")
        || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
}

bool Desktop::isComposited(const QScreen *) {
    auto *x = connection();
    if (!x)
        return true; // Wayland always is; an image in memory is as good
    const auto selection = atom(x, "_NET_WM_CM_S0");
    const ReplyPointer<xcb_get_selection_owner_reply_t> reply(
        xcb_get_selection_owner_reply(x, xcb_get_selection_owner(x, selection), nullptr));
    return reply && reply->owner != XCB_WINDOW_NONE;
}

void Desktop::prepareWindow(QWindow *window) {
    auto *x = connection();
    if (!x)
        return;
    setCardinal(x, window, "_NET_WM_DESKTOP", allWorkspaces);
}

void Desktop::willMap(QWindow *window, bool takesFocus) {
    auto *x = connection();
    if (!x)
        return;
    setCardinal(x, window, "_NET_WM_DESKTOP", allWorkspaces);
    // A time of zero asks the window manager not to hand over the keyboard.
    if (takesFocus)
        xcb_delete_property(x, static_cast<xcb_window_t>(window->winId()), atom(x, "_NET_WM_USER_TIME"));
    else
        setCardinal(x, window, "_NET_WM_USER_TIME", 0);
}
