#include "Controllers/Countdown.h"

#include "Controllers/NoticeSteps.h"
#include "Platform/RunLoop.h"
#include "Platform/Views/PushButton.h"
#include "Platform/Views/TextField.h"

#include <algorithm>
#include <array>
#include <utility>

namespace {

constexpr std::chrono::seconds tickInterval(1);

// A screen reader is told the time left now and then, not every second.
constexpr std::array<std::int64_t, 3> spokenSeconds { 30, 10, 5 };

struct RunningCountdown {
    std::shared_ptr<NoticeController> controller;
    std::function<TextField &()> label;
    std::function<PushButton &()> button;
    Countdown countdown;

    void tick(Timer &timer) {
        // Several ticks may stand in the main queue after the process was held up.
        if (!timer.isValid())
            return;
        auto &counter = countdown.seconds;
        if (counter <= 0) {
            timer.invalidate();
            countdown.ended();
            return;
        }
        --counter;
        if (counter < 1)
            setWindowAlpha(*controller, 0.0);
        label().setHidden(counter < 1);
        button().setEnabled(counter > 0);
        if (countdown.secondsLeft)
            countdown.secondsLeft(counter);
        label().setStringValue(countdown.line(counter));
        if (std::find(spokenSeconds.begin(), spokenSeconds.end(), counter) != spokenSeconds.end())
            label().announce();
    }
};

} // namespace

void Countdown::start(RunLoop &runLoop, std::shared_ptr<NoticeController> controller,
    std::function<TextField &()> label, std::function<PushButton &()> button, Countdown countdown) {
    auto running = std::make_shared<RunningCountdown>(RunningCountdown {
        std::move(controller), std::move(label), std::move(button), std::move(countdown) });
    // The block holds the timer only weakly: the run loop owns it.
    auto self = std::make_shared<std::weak_ptr<Timer>>();
    *self = runLoop.scheduledTimer(tickInterval, Repeats::Yes, [&runLoop, running, self](Timer &) {
        runLoop.async([running, timer = self->lock()] {
            if (timer)
                running->tick(*timer);
        });
    });
}
