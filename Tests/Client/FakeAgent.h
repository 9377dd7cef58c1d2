#pragma once

#include <atomic>
#include <string>
#include <thread>
#include <vector>

struct DBusConnection;
struct DBusMessage;

/// Stands for the agent on the test's bus: owns names, hears every message, answers calls, in a thread of its
/// own.
class FakeAgent {
public:
    /// What it does at a message, before it takes the next thing from the bus.
    enum class AtMessage { Nothing, Answer, GiveNamesBack, End };

    /// Owns the names when this returns.
    explicit FakeAgent(std::vector<std::string> names, AtMessage atMessage = AtMessage::Nothing);
    ~FakeAgent();
    FakeAgent(const FakeAgent &) = delete;
    FakeAgent &operator=(const FakeAgent &) = delete;

    /// How many messages it has heard.
    int heard() const { return heard_; }

private:
    void serve();
    void handle(DBusMessage *message);

    std::vector<std::string> names_;
    AtMessage atMessage_;
    DBusConnection *connection_;
    std::atomic<int> heard_ = 0;
    std::atomic<bool> isOver_ = false;
    std::thread thread_;
};
