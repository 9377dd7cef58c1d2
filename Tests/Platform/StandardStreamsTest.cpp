#include "Platform/Qt/StandardStreams.h"

#include "Tests/Fakes/Printing.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// Runs a step in a process of its own, with a pipe as its standard output. Returns what came through the
/// pipe.
struct Outcome {
    int status = 0;
    std::string output;
};

template <class Step>
Outcome runWithPipe(const Step &step) {
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    const auto child = ::fork();
    if (child == 0) {
        ::alarm(20); // whoever waits for ever is ended, and the test fails
        ::dup2(ends[1], STDOUT_FILENO);
        ::close(ends[1]);
        step(ends[0]);
        std::_Exit(0);
    }
    ::close(ends[1]);
    Outcome outcome;
    ::waitpid(child, &outcome.status, 0);
    char buffer[4096];
    for (auto count = ::read(ends[0], buffer, sizeof buffer); count > 0;
         count = ::read(ends[0], buffer, sizeof buffer))
        outcome.output.append(buffer, static_cast<std::size_t>(count));
    ::close(ends[0]);
    return outcome;
}

bool endedWell(const Outcome &outcome) {
    return WIFEXITED(outcome.status) && WEXITSTATUS(outcome.status) == 0;
}

TEST(StandardStreamsTest, ALineIsWrittenWithItsEnd) {
    const auto outcome = runWithPipe([](int) {
        StandardStreams::protect();
        StandardStreams::printLine(QStringLiteral(u"KORVANE é"));
        StandardStreams::printLine(QString());
    });
    EXPECT_TRUE(endedWell(outcome));
    EXPECT_EQ(outcome.output, "KORVANE \xc3\xa9\n\n");
}

TEST(StandardStreamsTest, AnErrorLineGoesToStandardError) {
    const auto outcome = runWithPipe([](int) {
        ::dup2(STDOUT_FILENO, STDERR_FILENO);
        ::close(STDOUT_FILENO);
        StandardStreams::protect();
        StandardStreams::printErrorLine(QStringLiteral("error"));
    });
    EXPECT_TRUE(endedWell(outcome));
    EXPECT_EQ(outcome.output, "error\n");
}

TEST(StandardStreamsTest, ALongLineIsCutAndStillALine) {
    const auto outcome = runWithPipe([](int) {
        StandardStreams::protect();
        StandardStreams::printLine(QString(20'000, u'x'));
        StandardStreams::printLine(QStringLiteral("next"));
    });
    EXPECT_TRUE(endedWell(outcome));
    EXPECT_GT(outcome.output.size(), 1000U);
    EXPECT_TRUE(outcome.output.ends_with("x\nnext\n"));
}

TEST(StandardStreamsTest, APipeThatNobodyReadsHoldsNothingUp) {
    const auto outcome = runWithPipe([](int) {
        StandardStreams::protect();
        for (int count = 0; count < 5'000; ++count) // more than any pipe takes
            StandardStreams::printLine(QString(1000, u'x'));
    });
    EXPECT_TRUE(endedWell(outcome));
    EXPECT_LT(outcome.output.size(), 5'000'000U);
}

TEST(StandardStreamsTest, APipeWhoseReaderIsGoneEndsNothing) {
    const auto outcome = runWithPipe([](int readingEnd) {
        ::close(readingEnd);
        StandardStreams::protect();
        // The parent holds the reading end as well: a pipe of this process's own is used.
        int ends[2];
        if (::pipe(ends) != 0)
            std::_Exit(1);
        ::close(ends[0]);
        ::dup2(ends[1], STDOUT_FILENO);
        StandardStreams::printLine(QStringLiteral("x"));
        ::dup2(ends[1], STDERR_FILENO);
        StandardStreams::printErrorLine(QStringLiteral("x"));
    });
    EXPECT_TRUE(endedWell(outcome));
}

TEST(StandardStreamsTest, ClosedStreamsAreNotTakenByTheNextFile) {
    const auto outcome = runWithPipe([](int) {
        for (const int stream : { STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO })
            ::close(stream);
        StandardStreams::protect();
        const int file = ::open("/dev/null", O_RDWR);
        StandardStreams::printLine(QStringLiteral("x"));
        StandardStreams::printErrorLine(QStringLiteral("x"));
        std::_Exit(file > STDERR_FILENO ? 0 : 1);
    });
    EXPECT_TRUE(endedWell(outcome));
    EXPECT_EQ(outcome.output, "");
}

} // namespace
