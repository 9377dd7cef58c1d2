#include "Platform/TimerQueue.h"

#include <algorithm>
#include <utility>

namespace {

constexpr RunLoop::Interval shortestPeriod = std::chrono::milliseconds(1);

} // namespace

struct TimerQueue::Entry : Timer {
    void invalidate() override {
        valid = false;
        if (!firing)
            block = nullptr;
    }
    bool isValid() const override { return valid; }

    Clock::time_point deadline;
    RunLoop::Interval interval {};
    Repeats repeats = Repeats::No;
    RunLoop::TimerBlock block;
    std::uint64_t sequence = 0;
    bool valid = true;
    bool firing = false;
};

TimerQueue::TimerQueue() = default;
TimerQueue::~TimerQueue() = default;

std::shared_ptr<Timer> TimerQueue::schedule(
    Clock::time_point now, RunLoop::Interval interval, Repeats repeats, RunLoop::TimerBlock block) {
    auto entry = std::make_shared<Entry>();
    entry->interval = std::clamp(interval, RunLoop::Interval::zero(), RunLoop::longestInterval);
    entry->deadline = now + entry->interval;
    entry->repeats = repeats;
    entry->block = std::move(block);
    entry->sequence = nextSequence_++;
    entries_.push_back(entry);
    return entry;
}

std::optional<TimerQueue::Clock::time_point> TimerQueue::nextDeadline() {
    std::erase_if(entries_, [](const auto &entry) { return !entry->valid; });
    const auto first = std::min_element(entries_.begin(), entries_.end(),
        [](const auto &left, const auto &right) { return left->deadline < right->deadline; });
    if (first == entries_.end())
        return std::nullopt;
    return (*first)->deadline;
}

void TimerQueue::fireDue(Clock::time_point now) {
    std::vector<std::shared_ptr<Entry>> due;
    std::copy_if(entries_.begin(), entries_.end(), std::back_inserter(due),
        [now](const auto &entry) { return entry->valid && entry->deadline <= now; });
    std::sort(due.begin(), due.end(), [](const auto &left, const auto &right) {
        return std::pair(left->deadline, left->sequence) < std::pair(right->deadline, right->sequence);
    });

    for (const auto &entry : due) {
        if (!entry->valid)
            continue; // an earlier block of this turn ended it
        if (entry->repeats == Repeats::No) {
            entry->valid = false;
        } else {
            const auto period = std::max(entry->interval, shortestPeriod);
            entry->deadline += period * ((now - entry->deadline) / period + 1);
        }
        entry->firing = true;
        entry->block(*entry);
        entry->firing = false;
        if (!entry->valid)
            entry->block = nullptr;
    }
    std::erase_if(entries_, [](const auto &entry) { return !entry->valid; });
}

bool TimerQueue::enqueue(RunLoop::Block block) {
    const std::lock_guard lock(queueMutex_);
    queue_.push_back(std::move(block));
    return queue_.size() == 1;
}

bool TimerQueue::drain() {
    std::deque<RunLoop::Block> blocks;
    {
        const std::lock_guard lock(queueMutex_);
        blocks.swap(queue_);
    }
    for (auto &block : blocks)
        block();
    return !blocks.empty();
}
