#pragma once

#include <algorithm>
#include <chrono>
#include <ctime>

// What takes seconds by a fault took from 6 s to minutes; without one it takes at most 0.5 s. Between the two
// there is room for a slow machine.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::chrono::duration<double> longestHold(30);
#else
constexpr std::chrono::duration<double> longestHold(3);
#endif

/// The processor time that a step takes: the machine's other work does not count.
template <class Step>
std::chrono::duration<double> processorTimeOf(const Step &step) {
    const auto start = std::clock();
    step();
    return std::chrono::duration<double>(static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC);
}

/// The least processor time of some runs of a step.
template <class Step>
std::chrono::duration<double> leastProcessorTime(const Step &step, int runs = 5) {
    auto least = std::chrono::duration<double>::max();
    for (int run = 0; run < runs; ++run)
        least = std::min(least, processorTimeOf(step));
    return least;
}
