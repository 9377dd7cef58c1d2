#pragma once

#include <QString>

#include <cstdint>
#include <functional>
#include <memory>

class NoticeController;
class PushButton;
class RunLoop;
class TextField;

/// The countdown that three notices share: one tick a second, handed to the main queue. While seconds are
/// left a tick takes one off, hides the window at 0, shows the line and enables the button only before 0. The
/// tick after the one that reached 0 ends the countdown.
///
/// Each start has a counter of its own and cannot be called off: the running timer holds the controller, so
/// that a notice that was replaced, or pressed away, counts on and still ends the application.
struct Countdown {
    std::int64_t seconds = 0; ///< where it starts; at 0 or less the first tick ends it
    std::function<QString(std::int64_t secondsLeft)> line;
    std::function<void(std::int64_t secondsLeft)> secondsLeft; ///< called before the line is set; may be null
    std::function<void()> ended; ///< the timer is invalidated by then

    static void start(RunLoop &runLoop, std::shared_ptr<NoticeController> controller,
        std::function<TextField &()> label, std::function<PushButton &()> button, Countdown countdown);
};
