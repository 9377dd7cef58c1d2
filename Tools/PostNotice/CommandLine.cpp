#include "Tools/PostNotice/CommandLine.h"

#include "Tools/PostNotice/Failure.h"
#include "Tools/PostNotice/RealNumber.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <string_view>

namespace {

namespace Key = NoticeClient::Key;
using NoticeClient::Value;

constexpr CommandLine::Duration defaultWait = std::chrono::seconds(10);
constexpr CommandLine::Duration defaultReauthenticationWait = std::chrono::seconds(60);
constexpr double longestWait = 1'000'000;

[[noreturn]] void fail(const std::string &line) {
    throw Failure(line, ExitStatus::UsageError);
}

/// An option on its way to its meaning.
struct Given {
    std::string option;
    std::optional<std::string> value; ///< there when the option takes one that is not optional

    const std::string &text() const {
        if (!NoticeClient::isText(*value))
            fail(option + ": not UTF-8 text");
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
            fail(option + ": " + *value + ": not of the form " + form);
        Pair result { value->substr(0, equals), value->substr(equals + 1) };
        checkKey(result.key);
        return result;
    }
    void checkKey(const std::string &key) const {
        if (key.empty() || !NoticeClient::isText(key))
            fail(option + ": a key must be UTF-8 text that is not empty");
    }

    CommandLine::Duration duration() const {
        const auto seconds
            = value->find_first_of("eE") == std::string::npos ? realNumber(*value) : std::nullopt;
        if (!seconds || !(*seconds >= 0 && *seconds <= longestWait))
            fail(option + ": " + *value + ": not a number of seconds");
        return std::chrono::ceil<CommandLine::Duration>(std::chrono::duration<double>(*seconds));
    }
};

Value flagValue(const Given &given, const std::string &word) {
    if (word != "true" && word != "false")
        fail(given.option + ": " + word + ": neither true nor false");
    return { word == "true" };
}

// A whole number where the text is one, a real one where it has a fraction or an exponent.
Value numberValue(const Given &given, const std::string &text) {
    const char *const begin = text.data();
    const char *const end = begin + text.size();
    const auto isWhole = [end](const std::from_chars_result &result) {
        return result.ec == std::errc() && result.ptr == end;
    };
    std::int64_t whole = 0;
    if (isWhole(std::from_chars(begin, end, whole)))
        return { whole };
    std::uint64_t large = 0;
    if (isWhole(std::from_chars(begin, end, large)))
        return { large };
    if (const auto real = realNumber(text))
        return { *real };
    fail(given.option + ": " + text + ": not a number");
}

void add(CommandLine &line, const Given &given, const std::string &key,
    std::variant<Value, CommandLine::TextFile, CommandLine::DataFile> source) {
    line.entries.push_back({ given.option, key, std::move(source) });
}

void addFlag(CommandLine &line, const Given &given, const std::string &key) {
    add(line, given, key, Value { true });
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
    Option { "--text-file", Argument::Required,
        [](CommandLine &line, const Given &given) {
            const auto [key, path] = given.pair("KEY=FILE");
            add(line, given, key, CommandLine::TextFile { path });
        } },
    Option { "--data", Argument::Required,
        [](CommandLine &line, const Given &given) {
            const auto [key, path] = given.pair("KEY=FILE");
            add(line, given, key, CommandLine::DataFile { path });
        } },
    Option { "--number", Argument::Required,
        [](CommandLine &line, const Given &given) {
            const auto [key, text] = given.pair("KEY=N");
            add(line, given, key, numberValue(given, text));
        } },
    Option { "--no-user-info", Argument::None,
        [](CommandLine &line, const Given &) { line.userInfo = CommandLine::UserInfo::LeftOut; } },
    // The notices.
    Option { "--maintenance", Argument::Required,
        [](CommandLine &line, const Given &given) {
            addFlag(line, given, Key::maintenance);
            add(line, given, Key::maintenanceText, Value { given.text() });
        } },
    Option { "--auto-disconnect", Argument::Required,
        [](CommandLine &line, const Given &given) {
            addFlag(line, given, Key::autoDisconnect);
            add(line, given, Key::autoDisconnectText, Value { given.text() });
        } },
    Option { "--vpn-connected", Argument::None,
        [](CommandLine &line, const Given &given) { addFlag(line, given, Key::vpnStatus); } },
    Option { "--re-authenticate", Argument::None,
        [](CommandLine &line, const Given &given) { addFlag(line, given, Key::reauthentication); } },
    Option { "--concurrent-session", Argument::Required,
        [](CommandLine &line, const Given &given) {
            addFlag(line, given, Key::concurrentSession);
            add(line, given, Key::document, CommandLine::TextFile { *given.value });
        } },
    Option { "--casb", Argument::Required,
        [](CommandLine &line, const Given &given) {
            add(line, given, Key::document, CommandLine::TextFile { *given.value });
        } },
    Option { "--language", Argument::Required,
        [](CommandLine &line, const Given &given) {
            add(line, given, Key::language, Value { given.text() });
        } },
    Option { "--logo", Argument::Required,
        [](CommandLine &line, const Given &given) {
            add(line, given, Key::headerLogo, CommandLine::DataFile { *given.value });
        } },
    // Whom it is for.
    Option { "--folder", Argument::Required,
        [](CommandLine &line, const Given &given) { line.folder = given.text(); } },
    Option { "--name", Argument::Required,
        [](CommandLine &line, const Given &given) { line.name = given.text(); } },
    Option { "--object", Argument::Required,
        [](CommandLine &line, const Given &given) { line.object = given.text(); } },
    Option { "--user", Argument::Required,
        [](CommandLine &line, const Given &given) { line.user = given.text(); } },
    Option { "--bus", Argument::Required,
        [](CommandLine &line, const Given &given) { line.session.busAddress = given.text(); } },
    Option { "--display", Argument::Required,
        [](CommandLine &line, const Given &given) { line.session.display = given.text(); } },
    // What happens before and after.
    Option { "--start", Argument::Required,
        [](CommandLine &line, const Given &given) { line.bundleToStart = *given.value; } },
    Option { "--wait", Argument::Optional,
        [](CommandLine &line, const Given &given) {
            line.wait = given.value ? given.duration() : defaultWait;
        } },
    Option { "--wait-reauthentication", Argument::Optional,
        [](CommandLine &line, const Given &given) {
            line.waitForReauthentication = given.value ? given.duration() : defaultReauthenticationWait;
        } },
    Option { "--vendor", Argument::Required,
        [](CommandLine &line, const Given &given) { line.brand.vendor = given.text(); } },
    // About the command.
    Option { "--quiet", Argument::None,
        [](CommandLine &line, const Given &) { line.progress = CommandLine::Progress::Silent; } },
    Option { "--version", Argument::None,
        [](CommandLine &line, const Given &) { line.task = CommandLine::Task::ShowVersion; } },
    Option { "--help", Argument::None,
        [](CommandLine &line, const Given &) { line.task = CommandLine::Task::ShowHelp; } },
};

void checkTogether(CommandLine &line) {
    const bool hasEntries = line.propertyList || !line.entries.empty();
    if (line.userInfo == CommandLine::UserInfo::LeftOut && hasEntries)
        fail("--no-user-info: the message has entries");
    if (line.userInfo == CommandLine::UserInfo::Sent && !hasEntries)
        fail("no message: give a notice, --plist, an entry or --no-user-info; see --help");
    if (line.name && line.folder)
        fail("--name: given together with --folder");
    if (line.folder)
        line.brand.logFolderName = *line.folder;
    // A message that is posted before the agent observes is lost.
    if (line.bundleToStart && !line.wait)
        line.wait = defaultWait;
}

} // namespace

CommandLine CommandLine::parse(const std::vector<std::string> &arguments) {
    CommandLine line;
    for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
        if (!argument->starts_with("--"))
            fail(*argument + ": not an option; see --help");
        const auto equals = std::min(argument->find('='), argument->size());
        const auto name = argument->substr(0, equals);
        const auto option = std::find_if(options.begin(), options.end(),
            [&name](const Option &candidate) { return candidate.name == name; });
        if (option == options.end())
            fail(name + ": no such option; see --help");

        Given given { name, std::nullopt };
        if (equals < argument->size())
            given.value = argument->substr(equals + 1);
        if (given.value && option->argument == Argument::None)
            fail(name + ": takes no value");
        if (!given.value && option->argument == Argument::Required) {
            if (++argument == arguments.end())
                fail(name + ": its value is missing");
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

Posts one message to the notice agent over the session bus.

Notices:
  --maintenance TEXT          the maintenance notice
  --auto-disconnect TEXT      the auto-disconnect notice
  --vpn-connected             with it: the VPN is still connected
  --re-authenticate           the re-authentication notice
  --concurrent-session FILE   the concurrent-session notice, from an XML file
  --casb FILE                 the CASB notice, from an XML file
  --language CODE             the notice's language, for example de
  --logo FILE                 the header logo, an image file

Message, entry by entry:
  --plist FILE                a property list, XML or binary; other options
                              add to its entries and override them
  --flag KEY[=true|false]     a boolean; true when not said
  --text KEY=VALUE            a text
  --text-file KEY=FILE        a text from a UTF-8 file
  --data KEY=FILE             binary data from a file
  --number KEY=N              a number
  --no-user-info              a message without any entries

Receiver:
  --folder NAME               the brand's log folder name, which the message's
                              name begins with (zelvik)
  --name FULLNAME             the message's whole name instead
  --object OBJECT             the message's object (none)
  --user USER                 that user's session, by name or number; another
                              user's is for root alone
  --bus ADDRESS               the session bus, for example
                              unix:path=/run/user/1000/bus (found out)
  --display DISPLAY           the X11 display of an agent that is started, for
                              example :0 (found out)

Agent:
  --start BUNDLE              start the agent of that NoticeAgent.app unless one
                              is there, and wait for it; an installed one goes
                              by the name of its package, such as notice-agent
  --wait[=SECONDS]            wait until an agent is there (10)
  --wait-reauthentication[=SECONDS]
                              after posting, wait for the notification that the
                              user is to authenticate again (60)
  --vendor NAME               the brand's vendor word, which that notification's
                              name begins with (zelvik)

  --quiet                     say nothing but errors
  --version                   show the version
  --help                      show this

Exit status: 0 posted; 1 failed; 2 wrong usage; 3 posted, but no
re-authentication notification came; 4 the user has no session.
)";
}
