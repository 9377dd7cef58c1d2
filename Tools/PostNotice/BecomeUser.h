#pragma once

#include <string>

/// Makes this process one of that user's for good, as if they had started it: identifiers, groups, session
/// keyring, scheduling, limits, umask and environment. For root; a user who is that user already changes
/// nothing. Throws `Failure` before anything of the user's is touched.
/// @param user a name or a number
void becomeUser(const std::string &user);
