#include "Tools/PostNotice/CommandLine.h"

#include "Contract/Message.h"
#include "Tools/PostNotice/Failure.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>

namespace {

using NoticeClient::Value;

constexpr CommandLine::Duration defaultReauthenticationWait = std::chrono::seconds(60);
constexpr double maxWait = 1'000'000; // seconds

[[noreturn]] void fail(const std::string &line) {
    throw Failure(line, ExitStatus::UsageError);
}

/// An option on its way to its meaning.
struct Given {
    std::string option;
    std::optional<std::string> value; ///< there when the option takes one that is not optional

    const std::string &text() const {
        if (!NoticeClient::isText(*value))
            fail(option + " must be UTF-8 text");
        return *value;
    }

    // KEY=REST, parted at the first equals sign.
    struct Pair {
        std::string key;
        std::string rest;
    };
    Pair pair(const char *form) const {
        const auto equals = value->find('=');
        if (equals == std::string::npos || equals == 0)
            fail(option + " takes " + form + ", not " + *value);
        Pair result { value->substr(0, equals), value->substr(equals + 1) };
        checkKey(result.key);
        return result;
    }
    void checkKey(const std::string &key) const {
        if (key.empty() || !NoticeClient::isText(key))
            fail(option + ": the key must be UTF-8 text and not empty");
    }

    // Decimal, as in "2.5".
    CommandLine::Duration duration() const {
        const bool isDecimal = value->find_first_not_of("0123456789.") == std::string::npos
            && value->find_first_of("0123456789") != std::string::npos
            && std::count(value->begin(), value->end(), '.') <= 1;
        const double seconds = isDecimal ? std::strtod(value->c_str(), nullptr) : -1;
        if (!(seconds >= 0 && seconds <= maxWait))
            fail(option + ": " + *value + " is not a number of seconds");
        return std::chrono::ceil<CommandLine::Duration>(std::chrono::duration<double>(seconds));
    }
};

bool flagValue(const Given &given, const std::string &word) {
    if (word != "true" && word != "false")
        fail(given.option + ": " + word + " is neither true nor false");
    return word == "true";
}

using Source = decltype(CommandLine::EntryOption::source);

void add(CommandLine &line, const Given &given, std::string_view key, Source source) {
    line.entries.push_back({ given.option, std::string(key), std::move(source) });
}

void addFlag(CommandLine &line, const Given &given, std::string_view key) {
    add(line, given, key, Value { true });
}

// A message shows one notice; the agent would choose one of several by an order of its own.
void choose(CommandLine &line, const Given &given) {
    if (!line.notice.empty() && line.notice != given.option)
        fail(given.option + " cannot be combined with " + line.notice);
    line.notice = given.option;
}

enum class Argument { None, Optional, Required };

struct Option {
    std::string_view name;
    Argument argument;
    void (*apply)(CommandLine &, const Given &);
};

constexpr std::array options {
    // What the message holds.
    Option { "--plist", Argument::Required,
        [](CommandLine &line, const Given &given) { line.propertyList = *given.value; } },
    Option { "--flag", Argument::Required,
        [](CommandLine &line, const Given &given) {
            if (given.value->find('=') == std::string::npos) {
                given.checkKey(*given.value);
                return addFlag(line, given, *given.value);
            }
            const auto [key, word] = given.pair("KEY[=true|false]");
            add(line, given, key, flagValue(given, word));
        } },
    Option { "--text", Argument::Required,
        [](CommandLine &line, const Given &given) {
            static_cast<void>(given.text());
            const auto [key, text] = given.pair("KEY=VALUE");
            add(line, given, key, Value { text });
        } },
    Option { "--data", Argument::Required,
        [](CommandLine &line, const Given &given) {
            const auto [key, path] = given.pair("KEY=FILE");
            add(line, given, key, CommandLine::DataFile { path });
        } },
    // The notices.
    Option { "--maintenance", Argument::Required,
        [](CommandLine &line, const Given &given) {
            choose(line, given);
            addFlag(line, given, Contract::WebSocketType);
            add(line, given, Contract::MaintenanceMessageKey, Value { given.text() });
        } },
    Option { "--auto-disconnect", Argument::Required,
        [](CommandLine &line, const Given &given) {
            choose(line, given);
            addFlag(line, given, Contract::AutoDisconnectWebSocketType);
            add(line, given, Contract::AutoDisconnectMessageKey, Value { given.text() });
        } },
    Option { "--vpn-connected", Argument::None,
        [](CommandLine &line, const Given &given) {
            line.vpnConnected = true;
            addFlag(line, given, Contract::AutoDisconnectVPNStatus);
        } },
    Option { "--re-authenticate", Argument::None,
        [](CommandLine &line, const Given &given) {
            choose(line, given);
            addFlag(line, given, Contract::WebSocketReAuthType);
        } },
    Option { "--concurrent-session", Argument::Required,
        [](CommandLine &line, const Given &given) {
            choose(line, given);
            addFlag(line, given, Contract::WebSocketAdminDisconnect);
            add(line, given, Contract::webSocketResponse, CommandLine::TextFile { *given.value });
        } },
    Option { "--casb", Argument::Required,
        [](CommandLine &line, const Given &given) {
            choose(line, given);
            add(line, given, Contract::webSocketResponse, CommandLine::TextFile { *given.value });
        } },
    Option { "--language", Argument::Required,
        [](CommandLine &line, const Given &given) {
            add(line, given, Contract::webSocketappLanguageKey, Value { given.text() });
        } },
    Option { "--logo", Argument::Required,
        [](CommandLine &line, const Given &given) {
            add(line, given, Contract::HeaderLogoImage, CommandLine::ImageFile { *given.value });
        } },
    // Whom it is for.
    Option { "--folder", Argument::Required,
        [](CommandLine &line, const Given &given) { line.folder = given.text(); } },
    Option { "--user", Argument::Required,
        [](CommandLine &line, const Given &given) { line.user = given.text(); } },
    Option { "--bus", Argument::Required,
        [](CommandLine &line, const Given &given) { line.busAddress = given.text(); } },
    // What happens before and after.
    Option { "--start", Argument::Required,
        [](CommandLine &line, const Given &given) { line.bundleToStart = *given.value; } },
    Option { "--wait", Argument::Optional,
        [](CommandLine &line, const Given &given) {
            line.wait = given.value ? given.duration() : CommandLine::defaultWait;
        } },
    Option { "--wait-reauthentication", Argument::Optional,
        [](CommandLine &line, const Given &given) {
            line.waitForReauthentication = given.value ? given.duration() : defaultReauthenticationWait;
        } },
    Option { "--vendor", Argument::Required,
        [](CommandLine &line, const Given &given) { line.vendor = given.text(); } },
    // About the command.
    Option { "--quiet", Argument::None,
        [](CommandLine &line, const Given &) { line.progress = CommandLine::Progress::Silent; } },
    Option { "--version", Argument::None,
        [](CommandLine &line, const Given &) { line.task = CommandLine::Task::ShowVersion; } },
    Option { "--help", Argument::None,
        [](CommandLine &line, const Given &) { line.task = CommandLine::Task::ShowHelp; } },
};

void checkTogether(const CommandLine &line) {
    const auto isMessage = [](const CommandLine::EntryOption &entry) {
        return entry.option != "--language" && entry.option != "--logo";
    };
    if (!line.propertyList && std::none_of(line.entries.begin(), line.entries.end(), isMessage))
        fail("no message: give a notice, --plist or an entry; see --help");
    if (line.vpnConnected && line.notice != "--auto-disconnect")
        fail("--vpn-connected needs --auto-disconnect");
    if (line.bundleToStart && line.user)
        fail("--start cannot be combined with --user: the user's session starts the installed agent");
}

} // namespace

CommandLine CommandLine::parse(const std::vector<std::string> &arguments) {
    CommandLine line;
    for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
        if (!argument->starts_with("--"))
            fail(*argument + " is not an option; see --help");
        const auto equals = std::min(argument->find('='), argument->size());
        const auto name = argument->substr(0, equals);
        const auto option = std::find_if(options.begin(), options.end(),
            [&name](const Option &candidate) { return candidate.name == name; });
        if (option == options.end())
            fail("unknown option " + name + "; see --help");

        Given given { name, std::nullopt };
        if (equals < argument->size())
            given.value = argument->substr(equals + 1);
        if (given.value && option->argument == Argument::None)
            fail(name + " takes no value");
        if (!given.value && option->argument == Argument::Required) {
            if (++argument == arguments.end())
                fail(name + " needs a value");
            given.value = *argument;
        }
        option->apply(line, given);
        if (line.task != Task::Post)
            return line;
    }
    checkTogether(line);
    return line;
}

const char *CommandLine::help() {
    return R"(Usage: post-notice [OPTION]...

Shows one notice: starts the notice agent unless it is running, and posts a
message to it over the session bus.

Notices (one of them):
  --maintenance TEXT          the maintenance notice
  --auto-disconnect TEXT      the auto-disconnect notice
  --re-authenticate           the re-authentication notice
  --concurrent-session FILE   the concurrent-session notice, from an XML file
  --casb FILE                 the CASB notice, from an XML file

With a notice:
  --vpn-connected             with --auto-disconnect: the VPN is still connected
  --language CODE             language of the notice, for example de
  --logo FILE                 logo in its header, an image file

Message, entry by entry:
  --plist FILE                property list, XML or binary; other options add to
                              its entries and override them
  --flag KEY[=true|false]     boolean (default: true)
  --text KEY=VALUE            text
  --data KEY=FILE             binary data from a file

Receiver:
  --folder NAME               log folder name of the brand (default: zelvik, or
                              that of the bundle given with --start)
  --user USER                 post in the session of this user, by name or
                              number; for root
  --bus ADDRESS               session bus, for example
                              unix:path=/run/user/1000/bus (default: the
                              session's own)

Agent:
  --start BUNDLE              start the agent of this NoticeAgent.app instead of
                              the installed one
  --wait[=SECONDS]            wait for an agent also when none is installed that
                              could be started (default: 10)
  --wait-reauthentication[=SECONDS]
                              after posting, wait for the notification that the
                              user is to sign in again (default: 60)
  --vendor NAME               vendor word of the brand, which the name of that
                              notification begins with (default: zelvik, or that
                              of the bundle given with --start)

  --quiet                     print errors only
  --version                   print the version
  --help                      print this help

Exit status: 0 the agent has the message; 1 failed; 2 wrong usage; 3 posted, but
no re-authentication notification came; 4 the user of --user has no session;
5 no agent is there and none is installed; 6 nobody heard the message.
)";
}
