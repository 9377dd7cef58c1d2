#pragma once

#include <algorithm>
#include <chrono>
#include <ctime>

/// The least processor time that some runs of a step took: the machine's other work does not count.
template <class Step>
std::chrono::duration<double> leastProcessorTime(const Step &step, int runs = 5) {
    auto least = std::chrono::duration<double>::max();
    for (int run = 0; run < runs; ++run) {
        const auto start = std::clock();
        step();
        const std::chrono::duration<double> taken(static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC);
        least = std::min(least, taken);
    }
    return least;
}
