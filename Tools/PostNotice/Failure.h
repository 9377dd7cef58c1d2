#pragma once

#include <stdexcept>
#include <string>

/// What the command's exit status says; part of its interface.
enum class ExitStatus {
    Heard = 0,
    Failed = 1,
    UsageError = 2,
    NoReauthentication = 3,
    NoSession = 4,
    NotInstalled = 5,
    NotHeard = 6,
};

/// Ends the command: `main()` prints the one line and exits with the status.
class Failure : public std::runtime_error {
public:
    explicit Failure(const std::string &line, ExitStatus status = ExitStatus::Failed)
        : std::runtime_error(line)
        , status_(status) { }
    ExitStatus status() const { return status_; }

private:
    ExitStatus status_;
};
