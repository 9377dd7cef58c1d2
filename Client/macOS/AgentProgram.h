#pragma once

#include "Client/NoticeClient.h"

namespace NoticeClient {

/// An agent that was started. It lives on when this goes.
class AgentProgram {
public:
    /// As `Agent::start()` says.
    static Result<AgentProgram> start(const std::string &bundle);

    /// How it ended, in words, when it has.
    std::optional<std::string> ending();

private:
    explicit AgentProgram(pid_t process)
        : process_(process) { }

    pid_t process_;
    std::optional<std::string> ending_;
};

} // namespace NoticeClient
