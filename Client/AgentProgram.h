#pragma once

#include "Client/NoticeClient.h"

#include <utility>

#include <sys/types.h>

namespace NoticeClient {

/// An agent that was started as a child process. It lives on when this goes.
class AgentProgram {
public:
    /// As `Agent::start()` says.
    static Result<AgentProgram> start(const std::string &bundle);

    AgentProgram(AgentProgram &&other) noexcept
        : process_(std::exchange(other.process_, 0)) { }
    AgentProgram &operator=(AgentProgram &&other) noexcept {
        std::swap(process_, other.process_);
        return *this;
    }
    AgentProgram(const AgentProgram &) = delete;
    AgentProgram &operator=(const AgentProgram &) = delete;
    /// Its entry in the process table is reaped by a later start.
    ~AgentProgram();

    /// How it ended, in words, once it has; reported once.
    std::optional<std::string> ending();

private:
    explicit AgentProgram(pid_t process)
        : process_(process) { }

    pid_t process_; ///< 0 once its entry is reaped
};

} // namespace NoticeClient
