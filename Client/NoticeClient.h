#pragma once

/// \file
/// The notice agent as seen from a program that has something to tell the user.
///
///     auto agent = NoticeClient::Agent::connect();
///     if (agent && agent->ensureListening("/opt/NoticeAgent.app", std::chrono::seconds(10))) {
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
///   All else are plain values. No thread is started, no signal's handling changed, nothing written to the
///   standard streams; SIGPIPE is never raised by the bus.
/// - **Processes**: a started agent is a child of this process. When it has ended, its entry in the process
///   table is taken by the next call of the `Agent` that started it, or of any `Agent::start()`; a program
///   that takes it itself, or ignores SIGCHLD, does no harm.
/// - **Waiting** is bounded: by the time that the call is given, and by 25 s where the bus has to answer.
/// - **The binary interface** holds standard library types: build with the same standard library as the one
///   this library was built with, or use the static one from the same compiler. It may change with the minor
///   version while the major one is 0; the library's SONAME says which.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <sys/types.h>

#define NOTICE_CLIENT_EXPORT __attribute__((visibility("default")))

namespace NoticeClient {

// --- results -----------------------------------------------------------------------------------------------

enum class ErrorCode {
    InvalidArgument, ///< a text that is none, a countdown below a second, an address that cannot be used
    TooLarge, ///< the message is more than the bus carries
    NoBus, ///< the session bus cannot be reached
    BusLost, ///< the session bus went away, or did not answer
    NoSuchUser, ///< no user of that name or number
    NotPermitted, ///< another user's session, and this process is not root's
    NoSession, ///< the user is not logged in: there is no session bus of theirs
    NoDisplay, ///< the user has a session bus and no display for the agent to draw on
    CannotStart, ///< the agent's program cannot be started
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

struct Entry;
struct Value;
using Dictionary = std::vector<Entry>; ///< in the order given, each key once
using List = std::vector<Value>;

/// Binary data: any bytes, zero among them.
struct Data {
    std::string bytes;
};

/// A moment as text, for example 2024-05-01T12:00:00Z.
struct Date {
    std::string text;
};

/// What an entry of a message may hold. Of these the agent reads booleans, texts and data; it takes each of
/// the others for absent.
struct Value {
    std::variant<bool, std::int64_t, std::uint64_t, double, std::string, Data, Date, List, Dictionary>
        content;
};

struct Entry {
    std::string key;
    Value value;
};

/// Replaces the value of that key, or appends the entry.
NOTICE_CLIENT_EXPORT void setEntry(Dictionary &dictionary, std::string key, Value value);

/// Whether these bytes can be sent as a text: UTF-8 without a zero byte.
NOTICE_CLIENT_EXPORT bool isText(std::string_view bytes);

/// An array on the bus, which a message's user info is, holds no more bytes than this.
inline constexpr std::size_t mostBytes = 64 * 1024 * 1024;

/// The keys of a message's user info that the agent reads. Their names differ from the notices' in places;
/// that is how they are agreed upon.
namespace Key {
inline constexpr auto maintenance = "WebSocketType";
inline constexpr auto autoDisconnect = "AutoDisconnectWebSocketType";
inline constexpr auto reauthentication = "WebSocketReAuthType";
inline constexpr auto concurrentSession = "WebSocketAdminDisconnect";
inline constexpr auto document = "webSocketResponse";
inline constexpr auto language = "webSocketappLanguageKey";
inline constexpr auto maintenanceText = "MaintenanceMessageKey";
inline constexpr auto autoDisconnectText = "AutoDisconnectMessageKey";
inline constexpr auto vpnStatus = "AutoDisconnectVPNStatus";
inline constexpr auto headerLogo = "HeaderLogoImage";
} // namespace Key

/// A brand's words, as in the property list `Application_Shared` of its bundle. The agent fixes the message's
/// name at its launch.
struct Brand {
    std::string logFolderName = "zelvik";
    std::string vendor = "zelvik";

    /// Begins with `logFolderName`.
    NOTICE_CLIENT_EXPORT std::string messageName() const;
    /// Begins with `vendor`.
    NOTICE_CLIENT_EXPORT std::string reauthenticationName() const;
};

/// One message: what the agent reads, by key. The notices below make it; one made by hand may hold anything.
struct Message {
    /// The message's user info; nothing is a message without any, which is not the same as an empty one.
    std::optional<Dictionary> userInfo;
    /// The whole name of the message instead of the brand's.
    std::optional<std::string> name;
    /// The sender's object; the empty text is none, and the agent takes any.
    std::string object;
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

    /// The notice's XML document. `InvalidArgument` when a text holds a character that no XML document may
    /// (control characters other than tab and line ends, U+FFFE, U+FFFF) or the time-out is below a second.
    NOTICE_CLIENT_EXPORT Result<std::string> document() const;
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

    NOTICE_CLIENT_EXPORT Result<std::string> document() const; ///< as that of `CasbNotice`
    NOTICE_CLIENT_EXPORT Result<Message> message() const;
};

/// The service is not available for a while.
struct MaintenanceNotice {
    std::string text;
    Look look;

    NOTICE_CLIENT_EXPORT Result<Message> message() const;
};

// --- where the agent runs ----------------------------------------------------------------------------------

/// A user's desktop session: its bus, and the environment that an agent is started in. A value; what it holds
/// was so when it was made.
class NOTICE_CLIENT_EXPORT Session {
public:
    /// What is known better than it can be found out. Empty: found out.
    struct Overrides {
        /// The session bus, in the bus's own form: `unix:path=/run/user/1000/bus`. For another user's session
        /// only the kinds `unix:path` and `unix:abstract`.
        std::string busAddress;
        /// The X11 display that a started agent draws on: `:0`.
        std::string display;
    };

    /// The session that this process runs in: its environment and its bus.
    static Session current(const Overrides &overrides = {});

    /// The session of a logged-in user, for a service of root's. For one's own user no rights are needed; for
    /// another one the process must be root's.
    ///
    /// A session bus lets in nobody but its user. So a child process becomes that user for good (its groups,
    /// group and user identifier), opens the connection and hands it back; what belongs to the user is never
    /// looked up with root's rights. This process keeps its rights, and speaks to the bus as that user
    /// through the one connection. A started agent has that user's rights, a small environment of its own,
    /// and nothing of this process open.
    ///
    /// The bus is `/run/user/UID/bus`, when it and its folder are the user's own, and otherwise the one that
    /// processes of the user with a display name. The display is that of the session which the login manager
    /// calls active, else the one of the user's service manager, else that of the user's youngest process
    /// that has one. All sessions of one user share a bus, and so an agent.
    ///
    /// @return NoSuchUser, NotPermitted, NoSession; InvalidArgument for an override that cannot be used. That
    ///         a session has no display is told by `Agent::start()`, since no other call needs one.
    static Result<Session> forUser(uid_t user, const Overrides &overrides = {});
    static Result<Session> forUser(const std::string &name, const Overrides &overrides = {});

    uid_t user() const;
    /// Empty for the bus that this process's environment names.
    std::string busAddress() const;
    /// The value of that name in the environment that an agent is started with; empty when there is none.
    std::string environment(std::string_view name) const;

    struct State;

private:
    friend class Agent;
    explicit Session(std::shared_ptr<const State> state);

    std::shared_ptr<const State> state_;
};

/// The agent of one session, and this program's connection to the bus there. One agent serves a session;
/// whoever posts, it is the same one.
class NOTICE_CLIENT_EXPORT Agent {
public:
    /// Connects to the session's bus. The agent need not be there yet.
    /// @return NoBus; NoSession or NotPermitted for another user's session
    static Result<Agent> connect(const Session &session = Session::current(), Brand brand = {});

    Agent(Agent &&) noexcept;
    Agent &operator=(Agent &&) noexcept;
    Agent(const Agent &) = delete;
    Agent &operator=(const Agent &) = delete;
    /// Closes the connection. An agent that was started lives on.
    ~Agent();

    /// Whether an agent is there that hears messages.
    /// @return BusLost
    Result<bool> isListening();

    /// Starts the program of that bundle, a folder `NoticeAgent.app`: without a shell, in a session of its
    /// own, with no file of this process open, its standard streams at /dev/null, every signal as by default.
    /// It ends by itself when its notice is done, at the latest after the bundle's `Default_App_Timeout`.
    /// @return CannotStart; NoDisplay when the session is known to have none
    Result<void> start(const std::string &bundle);

    /// Waits until an agent hears messages: from then on none is lost.
    /// @return TimedOut; BusLost; AgentEnded when the agent of `start()` ended instead
    Result<void> waitUntilListening(std::chrono::milliseconds timeout);

    /// Unless an agent is there already, starts one and waits for it.
    Result<void> ensureListening(const std::string &bundle, std::chrono::milliseconds timeout);

    /// Posts a message. When this returns the bus has taken it, and every agent that was there has it. A
    /// message that nobody hears is lost, and no error. The agent shows one notice at a time: a message
    /// replaces the one before.
    /// @return InvalidArgument, TooLarge (nothing was posted); BusLost
    Result<void> post(const Message &message);

    /// From here on the notification that the user is to authenticate again is heard. To be called before the
    /// message is posted that it answers.
    /// @return BusLost; InvalidArgument for a vendor that is no text
    Result<void> observeReauthentication();

    /// Waits for that notification; each is told once, also one that came since `observeReauthentication()`,
    /// which is called here when it was not before.
    /// @return TimedOut; BusLost; AgentEnded when the agent ended without it
    Result<void> waitForReauthentication(std::chrono::milliseconds timeout);

    /// The other way to be told: `handler` is called within `processEvents()`, in the thread that calls it,
    /// and each notification is told once, there or by `waitForReauthentication()`. It may use this object,
    /// but not destroy or move it. An empty function takes the handler away.
    void onReauthentication(std::function<void()> handler);

    /// Handles what comes within that time, and at least what has come; zero does not wait. For an event
    /// loop: call it with zero when `descriptor()` is readable, and once after each other call.
    /// @return BusLost
    Result<void> processEvents(std::chrono::milliseconds timeout);

    /// Readable when `processEvents()` has something to do. Owned by this object, for waiting only. On macOS
    /// -1: there the run loop of the thread brings what comes.
    int descriptor() const;

private:
    struct State;
    explicit Agent(std::unique_ptr<State> state);

    std::unique_ptr<State> state_;
};

} // namespace NoticeClient
