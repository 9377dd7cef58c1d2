#pragma once

#include <QByteArray>
#include <QRect>

#include <xcb/xcb.h>

#include <initializer_list>
#include <optional>
#include <string_view>
#include <vector>

/// What the desktop asks of the X server and of its window manager, on the connection that Qt has. Main
/// thread only; an answer is waited for. Without a connection, as under Wayland, nothing but `isConnected()`
/// may be called.
class X11 {
public:
    using Window = xcb_window_t;
    static constexpr Window noWindow = XCB_WINDOW_NONE;

    /// Who asks, in a request to the window manager.
    static constexpr std::uint32_t fromApplication = 1;
    static constexpr std::uint32_t fromUser = 2;

    /// A property without a meaning to anybody else, to see when the server has come to its change.
    static constexpr std::string_view shownMark = "_NOTICE_SHOWN";

    X11();
    bool isConnected() const { return connection_ != nullptr; }
    void flush() const { xcb_flush(connection_); }

    bool hasCompositor() const;

    /// The window in use; `noWindow` when there is none, or when a Wayland program's is.
    Window activeWindow() const;
    Window focus() const;
    /// The window by which a window manager says that it is there; `noWindow` without one.
    Window windowManagerCheck() const;
    QByteArray nameOf(Window window) const;
    bool isManaged(Window window) const; ///< by a window manager, on the screen or as an icon
    bool hasState(Window window, std::string_view state) const;
    /// What panels leave free of all screens together, in native pixels; empty when nobody says so.
    QRect workArea() const;
    /// A window's place on the screen, in native pixels.
    std::optional<QRect> frameOf(Window window) const;

    void setNumbers(Window window, std::string_view property, xcb_atom_t type,
        const std::vector<std::uint32_t> &numbers) const;
    void setAtoms(Window window, std::string_view property, const std::vector<std::string_view> &names) const;
    void remove(Window window, std::string_view property) const;

    /// Leaves it to the user alone, and not to the window manager, to focus a window that does not accept it.
    void takeFocusFromUserOnly(Window window) const;
    void setAcceptsFocus(Window window, bool accepts) const;
    void setFocus(Window window) const;
    void setUnmanaged(Window window, bool unmanaged) const;
    /// Has clicks outside of the rectangle go to what lies below; in native pixels of the window.
    void setInputRectangle(Window window, const QRect &rectangle) const;

    enum class Change : std::uint32_t { Remove = 0, Add = 1 };
    void changeState(
        Window window, Change change, std::string_view state, std::string_view secondState) const;
    /// Asks the window manager to change something of a mapped window.
    void request(Window window, std::string_view message, std::initializer_list<std::uint32_t> values) const;

    /// Whether the event says that the window was taken off the screen or moved to another parent.
    bool isTakenAway(const xcb_generic_event_t *event, Window window) const;
    void mapAt(Window window, const QPoint &place) const;
    bool isChangeOf(const xcb_generic_event_t *event, Window window, std::string_view property) const;
    /// Whether there is a compositor from now on, if the event says so; Qt has these events sent.
    std::optional<bool> compositorChange(const xcb_generic_event_t *event) const;

private:
    xcb_atom_t atom(std::string_view name) const;
    Window root() const;
    std::vector<std::uint32_t> values(Window window, std::string_view property, xcb_atom_t type) const;

    xcb_connection_t *connection_;
};
