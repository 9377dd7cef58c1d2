// Stands for the agent: it listens, answers a message that asks to sign in again, and ends.

#include "Contract/Bus.h"
#include "Platform/macOS/MacNotificationCenter.h"
#include "Tests/Contracts/FoundationLoop.h"
#include "Tests/Fakes/ManualRunLoop.h"

#include <chrono>
#include <optional>

int main() {
    ManualRunLoop loop;
    MacNotificationCenter center(loop);
    std::optional<Notification> message;
    center.addObserver(
        &message, [&message](const Notification &notification) { message = notification; },
        QStringLiteral("zelvik_socketMessageNotifier"));
    center.listen(Contract::brandName("zelvik"), {});
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!message && std::chrono::steady_clock::now() < end) {
        turnFoundationLoop();
        loop.settle();
    }
    if (message && message->userInfo && message->userInfo->contains(QStringLiteral("WebSocketReAuthType")))
        center.postNotificationName(QStringLiteral("zelvik_webSocketToMainAppNotifier"));
}
