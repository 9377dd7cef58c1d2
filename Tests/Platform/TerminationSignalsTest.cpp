#include "Platform/Qt/TerminationSignals.h"

#include <QSocketNotifier>

#include <gtest/gtest.h>

#include <csignal>

#include <sys/time.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

using Clock = std::chrono::steady_clock;

/// In a death test: a main thread that never comes back, in a process that was started with every signal
/// blocked.
template <class Begin>
[[noreturn]] void hang(const Begin &begin) {
    sigset_t every;
    ::sigfillset(&every);
    ::pthread_sigmask(SIG_BLOCK, &every, nullptr);
    const TerminationSignals signals;
    begin();
    for (;;)
        ::usleep(10'000); // where ThreadSanitizer delivers signals
}

class TerminationSignalsTest : public testing::Test {
protected:
    TerminationSignalsTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
    ~TerminationSignalsTest() override {
        const auto taken = Clock::now() - begin_;
        EXPECT_GE(taken, 1s) << "the ordinary end comes first";
        EXPECT_LT(taken, 10s);
    }

    const Clock::time_point begin_ = Clock::now();
};

TEST_F(TerminationSignalsTest, AProcessThatHangsEndsByItsTime) {
    EXPECT_EXIT(hang([] { TerminationSignals::endBy(100ms); }), testing::ExitedWithCode(0), "");
}

TEST_F(TerminationSignalsTest, AProcessThatHangsEndsByASignalLongBeforeItsTime) {
    EXPECT_EXIT(hang([] {
        TerminationSignals::endBy(24h * 365 * 100);
        std::raise(SIGTERM);
    }),
        testing::ExitedWithCode(0), "");
}

TEST_F(TerminationSignalsTest, FurtherSignalsPutNothingOff) {
    EXPECT_EXIT(hang([] {
        for (;;) {
            std::raise(SIGHUP);
            ::usleep(100'000);
        }
    }),
        testing::ExitedWithCode(0), "");
}

/// Until the process would be ended if it hung.
std::chrono::seconds leftToLive() {
    itimerval timer {};
    ::getitimer(ITIMER_REAL, &timer);
    return std::chrono::seconds(timer.it_value.tv_sec);
}

TEST(TerminationSignals, AHangIsEndedWithinTwoSecondsOfItsMoment) {
    const TerminationSignals signals;
    TerminationSignals::endBy(100s);
    EXPECT_GE(leftToLive(), 100s);
    EXPECT_LT(leftToLive(), 102s);
    std::raise(SIGTERM);
    EXPECT_GE(leftToLive(), 1s);
    EXPECT_LT(leftToLive(), 2s);
    TerminationSignals::cancelEnd();
}

} // namespace
