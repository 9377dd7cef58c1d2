// post-notice: posts one message to the notice agent over the session bus.
//
//   CommandLine       what the user asked for
//   PropertyListFile  a message's entries from a property list; InputFile reads every file
//   Value             an entry's value, with a type for each one a property list has
//   SessionBus        posts, and waits for names and notifications
//   AgentProcess      the agent started by --start
//   Failure           how every part ends the command

#include "Tools/PostNotice/AgentProcess.h"
#include "Tools/PostNotice/CommandLine.h"
#include "Tools/PostNotice/Failure.h"
#include "Tools/PostNotice/InputFile.h"
#include "Tools/PostNotice/PropertyListFile.h"
#include "Tools/PostNotice/SessionBus.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <exception>
#include <optional>
#include <string>
#include <vector>

namespace {

constexpr auto agentName = "com.tevanic.NoticeAgent";

std::string inSeconds(CommandLine::Duration duration) {
    std::array<char, 32> text {};
    std::snprintf(text.data(), text.size(), "%g s", std::chrono::duration<double>(duration).count());
    return text.data();
}

void tell(const CommandLine &line, const std::string &progress) {
    if (line.progress == CommandLine::Progress::Told)
        std::printf("%s\n", progress.c_str());
}

Value valueOf(const CommandLine::EntryOption &entry) {
    if (const auto *file = std::get_if<CommandLine::TextFile>(&entry.source))
        return { InputFile::readText(entry.option, file->path) };
    if (const auto *file = std::get_if<CommandLine::DataFile>(&entry.source))
        return { Data { InputFile::read(entry.option, file->path) } };
    return std::get<Value>(entry.source);
}

Notification notificationOf(const CommandLine &line) {
    Notification notification { line.notificationName(), line.object, std::nullopt };
    if (line.userInfo == CommandLine::UserInfo::LeftOut)
        return notification;
    notification.userInfo
        = line.propertyList ? readPropertyList("--plist", *line.propertyList) : Dictionary();
    for (const auto &entry : line.entries)
        setEntry(*notification.userInfo, entry.key, valueOf(entry));
    return notification;
}

void waitForAgent(SessionBus &bus, const CommandLine &line) {
    if (bus.isOwned(agentName))
        return;
    std::optional<AgentProcess> agent;
    if (line.bundleToStart) {
        agent = AgentProcess::start(*line.bundleToStart);
        tell(line, "started " + AgentProcess::executable(*line.bundleToStart));
    }

    constexpr std::chrono::milliseconds betweenLooks(50);
    const auto deadline = SessionBus::Clock::now() + *line.wait;
    for (;;) {
        const auto now = SessionBus::Clock::now();
        const auto event = bus.waitForEvent(agent ? std::min(deadline, now + betweenLooks) : deadline);
        if (event == SessionBus::Event::OwnerCame)
            return;
        if (event == SessionBus::Event::BusVanished)
            throw Failure("the session bus went away while waiting for the agent");
        const auto ending = agent ? agent->ending() : std::nullopt;
        if (ending)
            throw Failure(
                "--start: " + *line.bundleToStart + ": the agent " + *ending + " before it was ready");
        if (!event && now >= deadline)
            throw Failure("--wait: no agent within " + inSeconds(*line.wait));
    }
}

void waitForReauthentication(SessionBus &bus, const CommandLine &line) {
    const auto fail = [](const std::string &reason) {
        throw Failure("--wait-reauthentication: " + reason, ExitStatus::NoReauthentication);
    };
    const auto deadline = SessionBus::Clock::now() + *line.waitForReauthentication;
    for (;;) {
        const auto event = bus.waitForEvent(deadline);
        if (!event)
            fail("no notification within " + inSeconds(*line.waitForReauthentication));
        else if (event == SessionBus::Event::OwnerVanished)
            fail("the agent ended without a notification");
        else if (event == SessionBus::Event::BusVanished)
            fail("the session bus went away");
        else if (event == SessionBus::Event::NotificationCame)
            return tell(line, "received " + line.reauthenticationName());
    }
}

void post(const CommandLine &line) {
    // Before anything is reached, so that a wrong file starts no agent.
    const auto notification = notificationOf(line);
    SessionBus bus;
    if (line.wait || line.waitForReauthentication)
        bus.watchOwner(agentName);
    if (line.waitForReauthentication)
        bus.watchNotification(line.reauthenticationName());
    if (line.wait)
        waitForAgent(bus, line);
    bus.post(notification);
    tell(line, "posted " + notification.name);
    if (line.waitForReauthentication)
        waitForReauthentication(bus, line);
}

ExitStatus run(const std::vector<std::string> &arguments) {
    const auto line = CommandLine::parse(arguments);
    switch (line.task) {
    case CommandLine::Task::ShowHelp:
        std::fputs(CommandLine::help(), stdout);
        break;
    case CommandLine::Task::ShowVersion:
        std::puts("post-notice " POST_NOTICE_VERSION);
        break;
    case CommandLine::Task::Post:
        post(line);
        break;
    }
    return ExitStatus::Posted;
}

int printed(const std::string &line, ExitStatus status) {
    std::fflush(stdout);
    std::fprintf(stderr, "post-notice: %s\n", line.c_str());
    return static_cast<int>(status);
}

} // namespace

int main(int count, char **arguments) {
    try {
        return static_cast<int>(run({ arguments + 1, arguments + count }));
    } catch (const Failure &failure) {
        return printed(failure.what(), failure.status());
    } catch (const std::exception &failure) {
        return printed(failure.what(), ExitStatus::Failed);
    }
}
