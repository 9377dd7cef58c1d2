#pragma once

#include <optional>
#include <string>

#include <sys/types.h>

/// An agent started by this command. It lives on when the command has ended: it has a session of its own, no
/// terminal, and nothing of the command's open.
class AgentProcess {
public:
    /// The agent's executable in a bundle: a folder, or the name of the package that installed it.
    static std::string executable(const std::string &bundle);

    /// Throws `Failure` when it cannot be started.
    static AgentProcess start(const std::string &bundle);

    /// How it ended, in words, when it has; to be asked by the process that started it.
    std::optional<std::string> ending();

private:
    explicit AgentProcess(pid_t process)
        : process_(process) { }

    pid_t process_;
};
