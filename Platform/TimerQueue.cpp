#include "Platform/TimerQueue.h"

#include <algorithm>
#include <limits>
#include <utility>
#include <vector>

namespace {

constexpr RunLoop::Interval shortestPeriod = std::chrono::milliseconds(1);

} // namespace

/// Valid as long as it has a block.
struct TimerQueue::Entry final : Timer {
    void invalidate() override { block = nullptr; }
    bool isValid() const override { return block != nullptr; }

    RunLoop::Interval interval {};
    Repeats repeats = Repeats::No;
    RunLoop::TimerBlock block;
};

std::shared_ptr<Timer> TimerQueue::schedule(
    Clock::time_point now, RunLoop::Interval interval, Repeats repeats, RunLoop::TimerBlock block) {
    auto entry = std::make_shared<Entry>();
    entry->interval = std::clamp(interval, RunLoop::Interval::zero(), RunLoop::longestInterval);
    entry->repeats = repeats;
    entry->block = std::move(block);
    entries_.emplace(Key(now + entry->interval, nextNumber_++), entry);
    return entry;
}

std::optional<TimerQueue::Clock::time_point> TimerQueue::nextDeadline() {
    while (!entries_.empty() && !entries_.begin()->second->isValid())
        entries_.erase(entries_.begin());
    return entries_.empty() ? std::nullopt : std::optional(entries_.begin()->first.first);
}

void TimerQueue::fireDue(Clock::time_point now) {
    const auto end = entries_.upper_bound(Key(now, std::numeric_limits<std::uint64_t>::max()));
    const std::vector<std::pair<Key, std::shared_ptr<Entry>>> due(entries_.begin(), end);
    entries_.erase(entries_.begin(), end);
    for (const auto &[key, entry] : due) {
        // Out of the entry or copied from it, since the block may end its own timer.
        const auto block
            = entry->repeats == Repeats::No ? std::exchange(entry->block, nullptr) : entry->block;
        if (!block)
            continue; // an earlier block of this turn ended it
        if (entry->repeats == Repeats::Yes) {
            const auto period = std::max(entry->interval, shortestPeriod);
            const auto next = key.first + period * ((now - key.first) / period + 1);
            entries_.emplace(Key(next, key.second), entry);
        }
        block(*entry);
    }
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
