#include "Tools/PostNotice/BecomeUser.h"

#include "Tools/PostNotice/Failure.h"

void becomeUser(const std::string &user) {
    throw Failure("--user " + user + ": not on macOS; use launchctl asuser");
}
