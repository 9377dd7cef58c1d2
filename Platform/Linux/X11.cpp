#include "Platform/Linux/X11.h"

#include <QGuiApplication>

#include <xcb/shape.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>

namespace {

struct FreeReply {
    void operator()(void *reply) const { std::free(reply); }
};
template <class Reply>
using ReplyPointer = std::unique_ptr<Reply, FreeReply>;

// All that are used, asked for together: each answer alone would be waited for.
constexpr std::array<std::string_view, 23> atomNames { "_NET_WM_CM_S0", "_NET_WORKAREA", "_NET_WM_DESKTOP",
    "_NET_WM_STATE", "_NET_WM_STATE_ABOVE", "_NET_WM_STATE_STICKY", "_NET_WM_STATE_FULLSCREEN",
    "_NET_WM_STATE_SKIP_TASKBAR", "_NET_WM_STATE_SKIP_PAGER", "_NET_WM_STATE_DEMANDS_ATTENTION",
    "_NET_ACTIVE_WINDOW", "_NET_SUPPORTING_WM_CHECK", "_NET_WM_NAME", "_NET_WM_WINDOW_TYPE",
    "_NET_WM_WINDOW_TYPE_NORMAL", "_NET_WM_WINDOW_TYPE_NOTIFICATION",
    "_KDE_NET_WM_WINDOW_TYPE_CRITICAL_NOTIFICATION", "_GTK_FRAME_EXTENTS", "WM_PROTOCOLS", "WM_STATE",
    "WM_TAKE_FOCUS", "WM_HINTS", X11::shownMark };

using Atoms = std::map<std::string_view, xcb_atom_t>;

Atoms internedAtoms(xcb_connection_t *x) {
    std::array<xcb_intern_atom_cookie_t, atomNames.size()> cookies {};
    for (std::size_t index = 0; index < atomNames.size(); ++index)
        cookies.at(index) = xcb_intern_atom(
            x, 0, static_cast<std::uint16_t>(atomNames.at(index).size()), atomNames.at(index).data());
    Atoms atoms;
    for (std::size_t index = 0; index < atomNames.size(); ++index) {
        const ReplyPointer<xcb_intern_atom_reply_t> reply(
            xcb_intern_atom_reply(x, cookies.at(index), nullptr));
        atoms[atomNames.at(index)] = reply ? reply->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
    }
    return atoms;
}

// The first of WM_HINTS' nine fields says which of the others count; the second is whether the keyboard is
// accepted.
constexpr std::uint32_t hintFields = 9;
constexpr std::uint32_t inputHint = 1;

constexpr std::uint8_t sentFlag = 0x80;

// The event XFixesSelectionNotify, as far as it is read.
struct SelectionNotify {
    std::uint8_t type;
    std::uint8_t change;
    std::uint16_t sequence;
    X11::Window window;
    X11::Window owner;
    xcb_atom_t selection;
};

template <class Event>
Event contentOf(const xcb_generic_event_t *event) {
    Event content {};
    std::memcpy(&content, event, sizeof(content));
    return content;
}

// Of XFixes, whose first event it is; zero, as no event has it, without the extension.
std::uint8_t selectionNotifyType(xcb_connection_t *x) {
    constexpr std::string_view name = "XFIXES";
    const ReplyPointer<xcb_query_extension_reply_t> reply(
        xcb_query_extension_reply(x, xcb_query_extension(x, name.size(), name.data()), nullptr));
    return reply ? reply->first_event : std::uint8_t { 0 };
}

} // namespace

X11::X11() {
    const auto *x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    connection_ = x11 ? x11->connection() : nullptr;
}

xcb_atom_t X11::atom(std::string_view name) const {
    static const auto atoms = internedAtoms(connection_);
    return name.empty() ? static_cast<xcb_atom_t>(XCB_ATOM_NONE) : atoms.at(name);
}

X11::Window X11::root() const {
    return xcb_setup_roots_iterator(xcb_get_setup(connection_)).data->root;
}

bool X11::hasCompositor() const {
    const ReplyPointer<xcb_get_selection_owner_reply_t> reply(xcb_get_selection_owner_reply(
        connection_, xcb_get_selection_owner(connection_, atom("_NET_WM_CM_S0")), nullptr));
    return reply && reply->owner != noWindow;
}

std::vector<std::uint32_t> X11::values(Window window, std::string_view property, xcb_atom_t type) const {
    constexpr std::uint32_t maxValues = 64;
    const ReplyPointer<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        connection_, xcb_get_property(connection_, 0, window, atom(property), type, 0, maxValues), nullptr));
    if (!reply || reply->format != 32)
        return {};
    const auto *first = static_cast<const std::uint32_t *>(xcb_get_property_value(reply.get()));
    return { first, first + reply->value_len };
}

X11::Window X11::activeWindow() const {
    const auto active = values(root(), "_NET_ACTIVE_WINDOW", XCB_ATOM_WINDOW);
    return active.empty() ? noWindow : active.front();
}

X11::Window X11::focus() const {
    const ReplyPointer<xcb_get_input_focus_reply_t> reply(
        xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
    return reply ? reply->focus : noWindow;
}

X11::Window X11::windowManagerCheck() const {
    const auto check = values(root(), "_NET_SUPPORTING_WM_CHECK", XCB_ATOM_WINDOW);
    // A window manager that went leaves its word behind, but not its window.
    const bool isThere
        = !check.empty() && values(check.front(), "_NET_SUPPORTING_WM_CHECK", XCB_ATOM_WINDOW) == check;
    return isThere ? check.front() : noWindow;
}

QByteArray X11::nameOf(Window window) const {
    constexpr std::uint32_t maxWords = 32;
    if (window == noWindow)
        return {};
    const ReplyPointer<xcb_get_property_reply_t> reply(xcb_get_property_reply(connection_,
        xcb_get_property(connection_, 0, window, atom("_NET_WM_NAME"), XCB_ATOM_ANY, 0, maxWords), nullptr));
    if (!reply || reply->format != 8)
        return {};
    return { static_cast<const char *>(xcb_get_property_value(reply.get())),
        xcb_get_property_value_length(reply.get()) };
}

bool X11::isManaged(Window window) const {
    return !values(window, "WM_STATE", XCB_ATOM_ANY).empty();
}

bool X11::hasState(Window window, std::string_view state) const {
    if (window == noWindow)
        return false;
    const auto states = values(window, "_NET_WM_STATE", XCB_ATOM_ATOM);
    return std::find(states.begin(), states.end(), atom(state)) != states.end();
}

QRect X11::workArea() const {
    const auto area = values(root(), "_NET_WORKAREA", XCB_ATOM_CARDINAL);
    const auto at = [&area](std::size_t index) { return static_cast<int>(area.at(index)); };
    return area.size() < 4 ? QRect() : QRect(at(0), at(1), at(2), at(3));
}

std::optional<QRect> X11::frameOf(Window window) const {
    if (window == noWindow)
        return std::nullopt;
    const auto sizeAsked = xcb_get_geometry(connection_, window);
    const auto placeAsked = xcb_translate_coordinates(connection_, window, root(), 0, 0);
    const ReplyPointer<xcb_get_geometry_reply_t> size(
        xcb_get_geometry_reply(connection_, sizeAsked, nullptr));
    const ReplyPointer<xcb_translate_coordinates_reply_t> place(
        xcb_translate_coordinates_reply(connection_, placeAsked, nullptr));
    if (!size || !place)
        return std::nullopt;
    return QRect(place->dst_x, place->dst_y, size->width, size->height);
}

void X11::setNumbers(Window window, std::string_view property, xcb_atom_t type,
    const std::vector<std::uint32_t> &numbers) const {
    xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window, atom(property), type, 32,
        static_cast<std::uint32_t>(numbers.size()), numbers.data());
}

void X11::setAtoms(
    Window window, std::string_view property, const std::vector<std::string_view> &names) const {
    std::vector<std::uint32_t> atoms;
    for (const auto name : names)
        atoms.push_back(atom(name));
    setNumbers(window, property, XCB_ATOM_ATOM, atoms);
}

void X11::remove(Window window, std::string_view property) const {
    xcb_delete_property(connection_, window, atom(property));
}

// Without the protocol by which a window manager offers the keyboard to a window that does not accept it.
void X11::takeFocusFromUserOnly(Window window) const {
    auto protocols = values(window, "WM_PROTOCOLS", XCB_ATOM_ATOM);
    const auto kept = std::remove(protocols.begin(), protocols.end(), atom("WM_TAKE_FOCUS"));
    if (kept == protocols.end())
        return;
    protocols.erase(kept, protocols.end());
    setNumbers(window, "WM_PROTOCOLS", XCB_ATOM_ATOM, protocols);
}

void X11::setAcceptsFocus(Window window, bool accepts) const {
    auto hints = values(window, "WM_HINTS", XCB_ATOM_WM_HINTS);
    hints.resize(hintFields);
    hints[0] |= inputHint;
    hints[1] = accepts ? 1 : 0;
    setNumbers(window, "WM_HINTS", XCB_ATOM_WM_HINTS, hints);
    flush();
}

void X11::setFocus(Window window) const {
    xcb_set_input_focus(connection_, XCB_INPUT_FOCUS_PARENT, window, XCB_CURRENT_TIME);
    flush();
}

void X11::setUnmanaged(Window window, bool unmanaged) const {
    const std::uint32_t value = unmanaged ? 1 : 0;
    xcb_change_window_attributes(connection_, window, XCB_CW_OVERRIDE_REDIRECT, &value);
}

void X11::setInputRectangle(Window window, const QRect &rectangle) const {
    const xcb_rectangle_t native { static_cast<std::int16_t>(rectangle.x()),
        static_cast<std::int16_t>(rectangle.y()), static_cast<std::uint16_t>(rectangle.width()),
        static_cast<std::uint16_t>(rectangle.height()) };
    xcb_shape_rectangles(connection_, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_INPUT, XCB_CLIP_ORDERING_UNSORTED,
        window, 0, 0, 1, &native);
}

void X11::changeState(
    Window window, Change change, std::string_view state, std::string_view secondState) const {
    request(window, "_NET_WM_STATE",
        { static_cast<std::uint32_t>(change), atom(state), atom(secondState), fromApplication });
}

void X11::request(
    Window window, std::string_view message, std::initializer_list<std::uint32_t> values) const {
    xcb_client_message_event_t event {};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = window;
    event.type = atom(message);
    std::copy(values.begin(), values.end(), event.data.data32);
    std::array<char, 32> bytes {}; // events are of one size
    std::memcpy(bytes.data(), &event, sizeof(event));
    xcb_send_event(connection_, 0, root(),
        XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT, bytes.data());
    flush();
}

bool X11::isTakenAway(const xcb_generic_event_t *event, Window window) const {
    const int type = event->response_type & ~sentFlag;
    return (type == XCB_UNMAP_NOTIFY && contentOf<xcb_unmap_notify_event_t>(event).window == window)
        || (type == XCB_REPARENT_NOTIFY && contentOf<xcb_reparent_notify_event_t>(event).window == window);
}

void X11::mapAt(Window window, const QPoint &place) const {
    const std::array values { static_cast<std::uint32_t>(place.x()), static_cast<std::uint32_t>(place.y()) };
    xcb_configure_window(connection_, window, XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y, values.data());
    xcb_map_window(connection_, window);
    flush();
}

bool X11::isChangeOf(const xcb_generic_event_t *event, Window window, std::string_view property) const {
    if ((event->response_type & ~sentFlag) != XCB_PROPERTY_NOTIFY)
        return false;
    const auto change = contentOf<xcb_property_notify_event_t>(event);
    return change.window == window && change.atom == atom(property);
}

std::optional<bool> X11::compositorChange(const xcb_generic_event_t *event) const {
    static const auto type = selectionNotifyType(connection_);
    if ((event->response_type & ~sentFlag) != type)
        return std::nullopt;
    const auto change = contentOf<SelectionNotify>(event);
    return change.selection == atom("_NET_WM_CM_S0") ? std::optional(change.owner != noWindow) : std::nullopt;
}
