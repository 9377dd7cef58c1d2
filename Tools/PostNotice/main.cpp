// post-notice: posts one message to the notice agent over the session bus.
//
//   CommandLine       what the user asked for
//   PropertyListFile  a message's entries from a property list; InputFile reads every file
//   Bundle            the agent that --start names
//   Failure           how every part ends the command
//
// The library NoticeClient does the rest.

#include "Client/NoticeClient.h"
#include "Tools/PostNotice/Bundle.h"
#include "Tools/PostNotice/CommandLine.h"
#include "Tools/PostNotice/Failure.h"
#include "Tools/PostNotice/InputFile.h"
#include "Tools/PostNotice/PropertyListFile.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <exception>
#include <optional>
#include <string>
#include <vector>

namespace {

using NoticeClient::Agent;
using NoticeClient::ErrorCode;
using NoticeClient::Message;
using NoticeClient::Session;
using NoticeClient::Value;

[[noreturn]] void fail(const std::string &option, const NoticeClient::Error &error) {
    const bool isNoSession = error.code == ErrorCode::NoSession || error.code == ErrorCode::NoDisplay;
    throw Failure(option + error.message, isNoSession ? ExitStatus::NoSession : ExitStatus::Failed);
}

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
        return { NoticeClient::Data { InputFile::read(entry.option, file->path) } };
    return std::get<Value>(entry.source);
}

Message messageOf(const CommandLine &line) {
    Message message { std::nullopt, line.name, line.object };
    if (line.userInfo == CommandLine::UserInfo::LeftOut)
        return message;
    message.userInfo
        = line.propertyList ? readPropertyList("--plist", *line.propertyList) : NoticeClient::Dictionary();
    for (const auto &entry : line.entries)
        setEntry(*message.userInfo, entry.key, valueOf(entry));
    return message;
}

Session sessionOf(const CommandLine &line) {
    if (!line.user)
        return Session::current(line.session);
    uid_t number = 0;
    const char *const end = line.user->data() + line.user->size();
    const auto [rest, error] = std::from_chars(line.user->data(), end, number);
    const bool isNumber = error == std::errc() && rest == end;
    auto session
        = isNumber ? Session::forUser(number, line.session) : Session::forUser(*line.user, line.session);
    if (!session)
        fail("--user: ", session.error());
    return std::move(*session);
}

Agent connect(const CommandLine &line) {
    auto agent = Agent::connect(sessionOf(line), line.brand);
    if (!agent)
        fail(line.user ? "--user: " : "no session bus: ", agent.error());
    return std::move(*agent);
}

void startUnlessThere(Agent &agent, const CommandLine &line) {
    const auto isThere = agent.isListening();
    if (!isThere)
        fail("", isThere.error());
    if (*isThere)
        return;
    const auto bundle = bundleNamed(*line.bundleToStart);
    if (const auto started = agent.start(bundle); !started)
        fail("--start: ", started.error());
    tell(line, "started " + bundle + "/Contents/" AGENT_FOLDER "/NoticeAgent");
}

void waitForAgent(Agent &agent, const CommandLine &line) {
    if (line.bundleToStart)
        startUnlessThere(agent, line);
    const auto came = agent.waitUntilListening(*line.wait);
    if (came)
        return;
    if (came.error().code == ErrorCode::TimedOut)
        throw Failure("--wait: no agent within " + inSeconds(*line.wait));
    fail(line.bundleToStart ? "--start: " + *line.bundleToStart + ": " : "--wait: ", came.error());
}

void waitForReauthentication(Agent &agent, const CommandLine &line) {
    const auto came = agent.waitForReauthentication(*line.waitForReauthentication);
    if (came)
        return tell(line, "received " + line.brand.reauthenticationName());
    const auto reason = came.error().code == ErrorCode::TimedOut
        ? "no notification within " + inSeconds(*line.waitForReauthentication)
        : came.error().message;
    throw Failure("--wait-reauthentication: " + reason, ExitStatus::NoReauthentication);
}

void post(const CommandLine &line) {
    // Before anything is reached, so that a wrong file starts no agent.
    const auto message = messageOf(line);
    auto agent = connect(line);
    if (line.waitForReauthentication) {
        if (const auto observed = agent.observeReauthentication(); !observed)
            fail("", observed.error());
    }
    if (line.wait)
        waitForAgent(agent, line);
    if (const auto posted = agent.post(message); !posted)
        fail("", posted.error());
    tell(line, "posted " + message.name.value_or(line.brand.messageName()));
    if (line.waitForReauthentication)
        waitForReauthentication(agent, line);
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
