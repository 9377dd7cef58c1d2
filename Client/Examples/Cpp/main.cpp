// Shows a notice from a program that knows nothing of a desktop:
//
//   notice-example blocked      an upload was blocked
//   notice-example sign-in      the user is to sign in again; prints what comes of it

#include <NoticeClient/NoticeClient.h>

#include <chrono>
#include <cstdio>
#include <string>

using namespace std::chrono_literals;

namespace {

int failed(const NoticeClient::Error &error) {
    std::fprintf(stderr, "notice-example: %s\n", error.message.c_str());
    return 1;
}

NoticeClient::CasbNotice blockedUpload() {
    NoticeClient::CasbNotice notice;
    notice.head = "Upload blocked";
    notice.module = "Cloud Access Policy";
    notice.body = "Files <10 MB & more> may not leave the company.";
    notice.activity.value = "Upload";
    notice.application.value = "Example Drive";
    notice.url.value = "https://drive.example.com/?a=1&b=2";
    notice.timeout = 20s;
    return notice;
}

int showBlockedUpload(NoticeClient::Agent &agent) {
    const auto message = blockedUpload().message();
    if (!message)
        return failed(message.error());
    const auto posted = agent.post(*message);
    return posted ? 0 : failed(posted.error());
}

int askForSignIn(NoticeClient::Agent &agent) {
    const auto message = NoticeClient::ReauthenticationNotice().message();
    if (!message)
        return failed(message.error());
    // Before the message, so that no answer can be missed.
    if (const auto observed = agent.observeReauthentication(); !observed)
        return failed(observed.error());
    if (const auto posted = agent.post(*message); !posted)
        return failed(posted.error());
    const auto answer = agent.waitForReauthentication(90s);
    if (!answer)
        return failed(answer.error());
    std::puts("the user is to sign in now");
    return 0;
}

} // namespace

int main(int count, char **arguments) {
    const std::string kind = count == 2 ? arguments[1] : "";
    if (kind != "blocked" && kind != "sign-in") {
        std::fputs("Usage: notice-example blocked|sign-in\n", stderr);
        return 2;
    }
    auto agent = NoticeClient::Agent::connect();
    if (!agent)
        return failed(agent.error());
    if (const auto ready = agent->ensureListening(10s); !ready)
        return failed(ready.error());
    return kind == "blocked" ? showBlockedUpload(*agent) : askForSignIn(*agent);
}
