#pragma once

#include "Tools/PostNotice/Value.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>

struct DBusConnection;
struct DBusMessage;

/// A distributed notification, as the agent and the main client exchange them.
struct Notification {
    std::string name;
    std::string object; ///< empty for none
    std::optional<Dictionary> userInfo;
};

/// The session bus: posts, and waits for what other programs post. Every failure throws `Failure`.
class SessionBus {
public:
    using Clock = std::chrono::steady_clock;

    /// An array on the bus, which the user info is, holds no more than this.
    static constexpr std::size_t mostBytes = 64 * 1024 * 1024;

    SessionBus();
    ~SessionBus();
    SessionBus(const SessionBus &) = delete;
    SessionBus &operator=(const SessionBus &) = delete;

    bool isOwned(const std::string &wellKnownName);
    /// From here on `waitForEvent()` reports that name's owners.
    void watchOwner(const std::string &wellKnownName);
    /// From here on `waitForEvent()` reports notifications of that name by others.
    void watchNotification(const std::string &name);

    /// When this returns the bus has taken the notification.
    void post(const Notification &notification);

    enum class Event { OwnerCame, OwnerVanished, NotificationCame, BusVanished };
    /// @return nothing when the time ran out
    std::optional<Event> waitForEvent(Clock::time_point deadline);

private:
    struct Unreference {
        void operator()(DBusConnection *connection) const;
        void operator()(DBusMessage *message) const;
    };
    using Message = std::unique_ptr<DBusMessage, Unreference>;

    void watch(const std::string &rule);
    std::optional<Event> eventOf(DBusMessage *message) const;

    std::unique_ptr<DBusConnection, Unreference> connection_;
    std::string watchedOwner_;
    std::string watchedNotification_;
};
