#pragma once

#include <optional>
#include <string>

#include <sys/types.h>

namespace NoticeClient {

/// A graphical session as the login manager knows it.
struct LoginSession {
    std::string identifier;
    std::string display; ///< of X11; often empty
};

/// The graphical session of that user that is active at its seat. Nothing when there is none, or when no
/// login manager answers.
std::optional<LoginSession> activeSessionOf(uid_t user);

} // namespace NoticeClient
