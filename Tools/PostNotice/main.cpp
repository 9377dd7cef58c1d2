// post-notice: shows one notice.
//
//   CommandLine       what the caller asked for
//   BecomeUser        what --user does, before anything else
//   InputFile         the files that options name
//   Failure           how every part ends the command
//
// NoticeClient does the rest.

#include "Client/NoticeClient.h"
#include "Contract/Brand.h"
#include "Formats/File.h"
#include "Formats/PropertyList.h"
#include "Tools/PostNotice/BecomeUser.h"
#include "Tools/PostNotice/CommandLine.h"
#include "Tools/PostNotice/Failure.h"
#include "Tools/PostNotice/InputFile.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using NoticeClient::Agent;
using NoticeClient::Brand;
using NoticeClient::ErrorCode;
using NoticeClient::Message;
using NoticeClient::Result;
using NoticeClient::Value;
using Clock = std::chrono::steady_clock;
using Duration = CommandLine::Duration;

ExitStatus statusOf(ErrorCode code) {
    switch (code) {
    case ErrorCode::NotInstalled:
        return ExitStatus::NotInstalled;
    case ErrorCode::NotListening:
    case ErrorCode::AgentEnded:
    case ErrorCode::TimedOut:
        return ExitStatus::NotHeard;
    default:
        return ExitStatus::Failed;
    }
}

template <class Value>
void check(const Result<Value> &result, const std::string &prefix = {}) {
    if (!result)
        throw Failure(prefix + result.error().message, statusOf(result.error().code));
}

std::string inSeconds(Duration duration) {
    std::array<char, 32> text {};
    std::snprintf(text.data(), text.size(), "%g s", std::chrono::duration<double>(duration).count());
    return text.data();
}

void show(const CommandLine &line, const std::string &progress) {
    if (line.progress == CommandLine::Progress::Silent)
        return;
    std::printf("%s\n", progress.c_str());
    std::fflush(stdout); // a pipe's reader need not wait for the end
}

Value valueOf(const CommandLine::EntryOption &entry) {
    if (const auto *file = std::get_if<CommandLine::TextFile>(&entry.source))
        return InputFile::readText(entry.option, file->path);
    if (const auto *file = std::get_if<CommandLine::DataFile>(&entry.source))
        return NoticeClient::Data { InputFile::read(entry.option, file->path) };
    if (const auto *file = std::get_if<CommandLine::ImageFile>(&entry.source))
        return NoticeClient::Data { InputFile::readImage(entry.option, file->path) };
    return std::get<Value>(entry.source);
}

Message messageOf(const CommandLine &line) {
    auto message = line.propertyList ? InputFile::readPropertyList("--plist", *line.propertyList) : Message();
    for (const auto &entry : line.entries)
        message.insert_or_assign(entry.key, valueOf(entry));
    return message;
}

// The words in the bundle's settings, read as the agent reads them.
Brand brandOfBundle(const std::string &bundle) {
    using namespace Contract::Brand;
    const auto path
        = bundle + "/Contents/Resources/" + std::string(settingsResource) + '.' + std::string(settingsType);
    const auto bytes = Formats::readFile(path);
    const auto settings = bytes ? Formats::parsePropertyList(*bytes) : std::nullopt;
    if (!settings)
        return { {}, {} };
    return { Formats::stringOf(*settings, LogFolderName).value_or(std::string(defaultLogFolderName)),
        Formats::stringOf(*settings, Vendor).value_or(std::string(defaultVendor)) };
}

Brand brandOf(const CommandLine &line) {
    auto brand = line.bundleToStart ? brandOfBundle(*line.bundleToStart) : Brand();
    brand.logFolderName = line.folder.value_or(brand.logFolderName);
    brand.vendor = line.vendor.value_or(brand.vendor);
    return brand;
}

void enterSession(const CommandLine &line) {
    if (line.user)
        becomeUser(*line.user);
    if (line.busAddress)
        ::setenv("DBUS_SESSION_BUS_ADDRESS", line.busAddress->c_str(), 1); // NOLINT(concurrency-mt-unsafe)
}

Agent connect(const CommandLine &line, const Brand &brand) {
    auto agent
        = Agent::connect(brand, std::clamp<Duration>(line.wait.value_or(CommandLine::defaultWait), 1s, 10s));
    if (!agent && line.user)
        throw Failure(*line.user + " has no session: " + agent.error().message, ExitStatus::NoSession);
    check(agent, "no session bus: ");
    return std::move(*agent);
}

Result<void> startBundle(Agent &agent, const CommandLine &line) {
    const auto isThere = agent.isListening();
    check(isThere);
    if (*isThere)
        return {};
    auto started = agent.start(*line.bundleToStart);
    if (started)
        show(line, "started " + *line.bundleToStart + "/Contents/" AGENT_FOLDER "/NoticeAgent");
    return started;
}

/// Has an agent listen, in the way that was asked for.
void ensureListening(Agent &agent, const CommandLine &line, Clock::time_point deadline) {
    const auto left
        = [deadline] { return std::max<Duration>(std::chrono::ceil<Duration>(deadline - Clock::now()), 0s); };
    auto result = line.bundleToStart ? startBundle(agent, line) : agent.ensureListening(left());
    const bool isAwaited = line.wait && !result && result.error().code == ErrorCode::NotInstalled;
    if (isAwaited || (line.bundleToStart && result))
        result = agent.waitUntilListening(left());
    if (!result && result.error().code == ErrorCode::TimedOut)
        throw Failure("no agent came within " + inSeconds(line.wait.value_or(CommandLine::defaultWait)),
            ExitStatus::NotHeard);
    check(result, line.bundleToStart ? "--start: " : "");
}

void waitForReauthentication(Agent &agent, const CommandLine &line, const Brand &brand) {
    const auto came = agent.waitForReauthentication(*line.waitForReauthentication);
    if (came)
        return show(line, "received " + brand.reauthenticationName());
    const auto reason = came.error().code == ErrorCode::TimedOut
        ? "no notification within " + inSeconds(*line.waitForReauthentication)
        : came.error().message;
    throw Failure("--wait-reauthentication: " + reason, ExitStatus::NoReauthentication);
}

void post(const CommandLine &line) {
    enterSession(line);
    // Before anything is reached, so that a wrong file starts no agent.
    const auto message = messageOf(line);
    const auto brand = brandOf(line);

    auto agent = connect(line, brand);
    if (line.waitForReauthentication)
        check(agent.observeReauthentication());
    const auto deadline = Clock::now() + line.wait.value_or(CommandLine::defaultWait);
    auto isOld = agent.isListening();
    check(isOld);
    Result<void> posted;
    // An agent that was about to end did not take it, and one that was there before may have been killed: the
    // next one will.
    const auto isForTheNext = [&] {
        return !posted && Clock::now() < deadline
            && (posted.error().code == ErrorCode::NotListening
                || (posted.error().code == ErrorCode::AgentEnded && std::exchange(*isOld, false)));
    };
    do {
        ensureListening(agent, line, deadline);
        posted = agent.post(message);
    } while (isForTheNext());
    check(posted);
    show(line, "posted " + brand.messageName());
    if (line.waitForReauthentication)
        waitForReauthentication(agent, line, brand);
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
    return ExitStatus::Heard;
}

int printed(const std::string &line, ExitStatus status) {
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
