#pragma once

#include "Client/BusConnection.h"
#include "Client/UserProcess.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace NoticeClient {

/// What a session is made of. Never changed once it is made.
struct [[gnu::visibility("hidden")]] Session::State {
    std::optional<User> user; ///< nothing for the session that this process runs in
    std::string busAddress; ///< empty for the one of the environment
    std::string runtimeFolder; ///< of the user, when the bus is in there and is to be theirs
    std::vector<std::string> environment; ///< NAME=VALUE each

    std::string variable(std::string_view name) const; ///< empty when there is none
    bool hasDisplay() const;

    Result<std::unique_ptr<BusConnection>> connect() const;
};

} // namespace NoticeClient
