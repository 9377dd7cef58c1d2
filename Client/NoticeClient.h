#pragma once

/// \file
/// The notice agent as seen from a program that has something to tell the user.
///
///     auto agent = NoticeClient::Agent::connect();
///     if (agent && agent->ensureListening(std::chrono::seconds(10))) {
///         NoticeClient::MaintenanceNotice notice;
///         notice.text = "Back at 18:00.";
///         if (auto message = notice.message())
///             agent->post(*message);
///     }
///
/// What holds for all of it:
///
/// - **Texts** are UTF-8 without a zero byte; any other text is refused with `InvalidArgument`.
/// - **Errors** are values (`Result`). Nothing here throws for what can go wrong outside; only memory that
///   runs out is `std::bad_alloc`.
/// - **Threads**: an `Agent` is used by one thread at a time, different ones by different threads at once.
///   Everything else is a plain value. No thread is started, no signal handler is changed, nothing is written
///   to the standard streams; SIGPIPE is never raised by the bus.
/// - **Users**: everything is done as the user of this process. A service running as root becomes the user
///   first, in a child process, as `post-notice --user` does.
/// - **Processes**: an agent started from a bundle is a child of this process. When it has ended, its entry
/// in
///   the process table is reaped by the next call of the `Agent` that started it, or of any `Agent::start()`;
///   a program that reaps it itself, or ignores SIGCHLD, does no harm.
/// - **Waiting** is bounded: by the time-out given, and by 10 s where the bus or the agent has to answer.
/// - **The binary interface** holds standard library types: build with the same standard library as this
///   library, or use the static one from the same compiler. The library's SONAME says which interface it has.

#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#define NOTICE_CLIENT_EXPORT __attribute__((visibility("default")))

namespace NoticeClient {

// --- results -----------------------------------------------------------------------------------------------

enum class ErrorCode {
    InvalidArgument, ///< not UTF-8, a countdown below a second
    TooLarge, ///< more than the bus carries in one message
    NoBus, ///< the session bus cannot be reached
    BusLost, ///< the session bus went away, or does not answer
    NotInstalled, ///< no agent of the brand is there, and the bus knows none that it could start
    CannotStart, ///< the agent's program cannot be started
    NotListening, ///< no agent of the brand is there, or it is about to end: ensure one and post again
    AgentEnded, ///< the agent ended while it was waited for
    TimedOut, ///< what was waited for did not come in time
};

struct Error {
    ErrorCode code;
    /// One line of English for a log, without a full stop; no part of the interface.
    std::string message;
};

/// A value, or why there is none. Asking a failure for its value, or a success for its error, is a mistake of
/// the caller and throws `std::bad_variant_access`.
template <class Value>
class [[nodiscard]] Result {
public:
    Result(Value value)
        : content_(std::in_place_index<0>, std::move(value)) { }
    Result(Error error)
        : content_(std::in_place_index<1>, std::move(error)) { }

    explicit operator bool() const { return content_.index() == 0; }
    Value &operator*() & { return std::get<0>(content_); }
    const Value &operator*() const & { return std::get<0>(content_); }
    Value &&operator*() && { return std::get<0>(std::move(content_)); }
    Value *operator->() { return &std::get<0>(content_); }
    const Value *operator->() const { return &std::get<0>(content_); }
    const Error &error() const { return std::get<1>(content_); }

private:
    std::variant<Value, Error> content_;
};

/// Success, or why it is none.
template <>
class [[nodiscard]] Result<void> {
public:
    Result() = default;
    Result(Error error)
        : error_(std::in_place_index<1>, std::move(error)) { }

    explicit operator bool() const { return error_.index() == 0; }
    const Error &error() const { return std::get<1>(error_); }

private:
    std::variant<std::monostate, Error> error_;
};

// --- a message and its values ------------------------------------------------------------------------------

/// Binary data: any bytes, zero among them.
struct Data {
    std::string bytes;
};

/// What an entry of a message may hold.
using Value = std::variant<bool, std::string, Data>;

/// One message: its user info. The notices below make it; for one made by hand docs/integration.md has the
/// keys.
using Message = std::map<std::string, Value>;

/// Whether these bytes can be sent as a text: UTF-8 without a zero byte.
NOTICE_CLIENT_EXPORT bool isText(std::string_view bytes);

/// The user info of a message holds no more bytes than this on the bus.
inline constexpr std::size_t maxBytes = 64 * 1024 * 1024;

/// A brand's words, as in the property list `Application_Shared` of its bundle.
struct Brand {
    std::string logFolderName = "zelvik"; ///< begins the message's name, and names the agent on the bus
    std::string vendor = "zelvik"; ///< begins the re-authentication notification's name

    NOTICE_CLIENT_EXPORT std::string messageName() const;
    NOTICE_CLIENT_EXPORT std::string reauthenticationName() const;
};

// --- the notices -------------------------------------------------------------------------------------------

/// What every notice may say about how it looks.
struct Look {
    /// Names a folder `<language>.lproj` of the bundle, for example `de`; empty for the agent's own default,
    /// English.
    std::string language;
    /// The bytes of a PNG, JPEG, GIF, SVG, ICO or BMP image for the header, in place of the brand's logo.
    /// Bytes that are no such image leave the header empty.
    std::optional<Data> headerLogo;
};

/// An application's activity. With an activity in its first row the notice counts down, and tells the
/// gateway that it closed; without one it stays until OK.
struct CasbNotice {
    /// The caption is shown as it stands, so it is to be in the notice's language. A row without a value
    /// takes no room.
    struct Row {
        std::string caption;
        std::string value;
    };

    std::string head; ///< the heading is this, the word "by", and the module
    std::string module;
    std::string body;
    Row activity { "Activity", {} };
    Row application { "Application", {} };
    Row url { "URL", {} };
    /// How long the notice stays, at least one second; the agent's 10 s when left out. It ends the agent one
    /// second later. With 5 s or less the activity's address is requested by the OK button alone.
    std::optional<std::chrono::seconds> timeout;
    /// Requested with HTTP GET at five seconds left and at OK, its bytes as they stand; empty for none.
    std::string activityUrl;
    Look look;

    /// `InvalidArgument` when a text holds a character that no XML document may (control characters other
    /// than tab and line ends, U+FFFE, U+FFFF) or the time-out is below a second.
    NOTICE_CLIENT_EXPORT Result<Message> message() const;
};

/// The user is to sign in again; see `Agent::waitForReauthentication()`. Its texts are the agent's own.
struct ReauthenticationNotice {
    Look look;

    NOTICE_CLIENT_EXPORT Result<Message> message() const;
};

enum class Vpn { Disconnected, Connected };

/// The VPN connection is ended by policy. While it is still connected the notice counts down from 30 s;
/// otherwise it stays until OK.
struct AutoDisconnectNotice {
    std::string text;
    Vpn vpn = Vpn::Disconnected;
    Look look;

    NOTICE_CLIENT_EXPORT Result<Message> message() const;
};

/// The session was taken over by another one.
struct ConcurrentSessionNotice {
    std::string head; ///< the heading is this, the word "by", and the module
    std::string module;
    std::string body;
    Look look;

    NOTICE_CLIENT_EXPORT Result<Message> message() const; ///< as that of `CasbNotice`
};

/// The service is not available for a while.
struct MaintenanceNotice {
    std::string text;
    Look look;

    NOTICE_CLIENT_EXPORT Result<Message> message() const;
};

// --- the agent ---------------------------------------------------------------------------------------------

/// The agent of one brand in the user's session, and this program's connection to the bus there. One agent
/// serves a brand; whoever posts, it is the same one.
class NOTICE_CLIENT_EXPORT Agent {
public:
    /// Connects to the session bus: the one that DBUS_SESSION_BUS_ADDRESS names, or `bus` in the folder
    /// XDG_RUNTIME_DIR. The agent need not be there yet.
    /// @return NoBus, also when the bus does not answer in time
    static Result<Agent> connect(
        Brand brand = {}, std::chrono::milliseconds timeout = std::chrono::seconds(10));

    Agent(Agent &&) noexcept;
    Agent &operator=(Agent &&) noexcept;
    Agent(const Agent &) = delete;
    Agent &operator=(const Agent &) = delete;
    /// Closes the connection. An agent that was started lives on.
    ~Agent();

    /// Whether an agent is there that hears messages. One that is about to end counts as gone.
    /// @return BusLost
    Result<bool> isListening();

    /// Unless an agent is there already, has the session bus start the installed one and waits for it. (There
    /// is nothing of the kind on macOS: NotInstalled.)
    /// @return NotInstalled; CannotStart; AgentEnded when it ended before it was ready, for example for want
    ///         of a display; TimedOut; BusLost
    Result<void> ensureListening(std::chrono::milliseconds timeout);

    /// Starts the program of that bundle, a folder `NoticeAgent.app` of this brand: without a shell, in a
    /// session of its own, with this process's environment and none of its open files, the standard streams
    /// at /dev/null, every signal at its default. It ends by itself when its notice is done, at the latest
    /// after the bundle's `Default_App_Timeout`.
    /// @return CannotStart
    Result<void> start(const std::string &bundle);

    /// Waits until an agent hears messages, whoever starts it.
    /// @return TimedOut; BusLost; AgentEnded when the agent of `start()` ended instead
    Result<void> waitUntilListening(std::chrono::milliseconds timeout);

    /// Posts a message. When this returns the agent has it. The agent shows one notice at a time: a message
    /// replaces the one before.
    /// @return InvalidArgument, TooLarge: nothing was posted. NotListening: nobody heard it. AgentEnded: the
    ///         agent ended before it could show it. TimedOut: the agent does not answer. BusLost
    Result<void> post(const Message &message);

    /// From here on the notification that the user is to authenticate again is heard. To be called before the
    /// message is posted that it answers.
    /// @return BusLost; InvalidArgument for a vendor that is no text
    Result<void> observeReauthentication();

    /// Waits for that notification; each is reported once, also one that came since
    /// `observeReauthentication()`, which is called here when it was not before.
    /// @return TimedOut; BusLost; AgentEnded when the agent ended without it
    Result<void> waitForReauthentication(std::chrono::milliseconds timeout);

    /// For an event loop: call `waitForReauthentication()` with a time-out of zero when this is readable, and
    /// once after each other call. Owned by this object, for waiting only. On macOS -1: there the run loop of
    /// the thread brings what comes.
    int descriptor() const;

private:
    struct State;
    explicit Agent(std::unique_ptr<State> state);

    std::unique_ptr<State> state_;
};

} // namespace NoticeClient
