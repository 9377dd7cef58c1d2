#pragma once

#include <QString>

#include <cstdint>
#include <functional>

class NoticeController;
struct NoticeServices;
template <class Object>
class Outlet;
class PushButton;
class TextField;

/// The countdown that three notices share: one tick a second, handed to the main queue. While seconds are
/// left a tick takes one off, hides the window at 0, shows the label and enables the button only before 0.
/// The tick after the one that reached 0 ends the countdown.
///
/// Each start has a counter of its own and cannot be called off: the running timer holds the controller, so
/// that a notice that was replaced, or pressed away, counts on and still ends the application.
struct Countdown {
    std::int64_t seconds = 0; ///< where it starts; at 0 or less the first tick ends it
    std::function<QString(std::int64_t secondsLeft)> text; ///< of the label
    std::function<void(std::int64_t secondsLeft)> secondsLeft; ///< called before the text is set; may be null
    std::function<void()> ended; ///< the timer is invalidated by then

    /// @param label, button  the controller's; touched at the ticks alone
    static void start(const NoticeServices &services, NoticeController &controller,
        const Outlet<TextField> &label, const Outlet<PushButton> &button, Countdown countdown);

    /// Hides or shows the label, and with it the line that the form may have for a countdown.
    static void setHidden(const NoticeController &controller, TextField &label, bool hidden);
};
