#include "Controllers/Countdown.h"

#include "Controllers/NoticeServices.h"
#include "Platform/Application.h"
#include "Platform/NoticeController.h"
#include "Platform/RunLoop.h"
#include "Platform/Views/CountdownLine.h"
#include "Platform/Views/PushButton.h"
#include "Platform/Views/TextField.h"

#include <utility>

namespace {

constexpr std::chrono::seconds tickInterval(1);

// A screen reader is told the time left now and then, not every second.
bool isSpoken(std::int64_t secondsLeft) {
    return secondsLeft == 10 || secondsLeft == 5;
}

CountdownLine *lineOf(const NoticeController &controller) {
    return controller.view()->findChild<CountdownLine *>();
}

struct RunningCountdown {
    Application &application;
    std::shared_ptr<NoticeController> controller;
    CountdownLine *line; ///< the controller's; may be null
    const Outlet<TextField> &label;
    const Outlet<PushButton> &button;
    Countdown countdown;
    std::int64_t counter;

    void tick(Timer &timer) {
        // Several ticks may stand in the main queue after the process was held up.
        if (!timer.isValid())
            return;
        if (counter <= 0) {
            timer.invalidate();
            countdown.ended();
            return;
        }
        --counter;
        if (counter < 1) {
            application.endIsSettled();
            controller->setWindowAlpha(0.0);
        }
        label->setHidden(counter < 1);
        button->setEnabled(counter > 0);
        if (countdown.secondsLeft)
            countdown.secondsLeft(counter);
        label->setStringValue(countdown.text(counter));
        if (line) {
            line->setHidden(counter < 1);
            line->setRemaining(static_cast<double>(counter) / static_cast<double>(countdown.seconds));
        }
        if (isSpoken(counter))
            label->announce();
    }
};

} // namespace

void Countdown::start(const NoticeServices &services, NoticeController &controller,
    const Outlet<TextField> &label, const Outlet<PushButton> &button, Countdown countdown) {
    const auto seconds = countdown.seconds;
    auto running = std::make_shared<RunningCountdown>(RunningCountdown { services.application,
        controller.shared_from_this(), lineOf(controller), label, button, std::move(countdown), seconds });
    auto &runLoop = services.runLoop;
    runLoop.scheduledTimer(tickInterval, Repeats::Yes, [&runLoop, running](Timer &timer) {
        runLoop.async([running, held = timer.shared_from_this()] { running->tick(*held); });
    });
}

void Countdown::setHidden(const NoticeController &controller, TextField &label, bool hidden) {
    label.setHidden(hidden);
    if (auto *line = lineOf(controller))
        line->setHidden(hidden);
}
