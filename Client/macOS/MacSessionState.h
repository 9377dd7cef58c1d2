#pragma once

#include "Client/NoticeClient.h"

namespace NoticeClient {

struct [[gnu::visibility("hidden")]] Session::State {
    uid_t user;
};

} // namespace NoticeClient
