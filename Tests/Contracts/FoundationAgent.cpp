// Stands for the agent: it listens, answers a message that asks to sign in again, and ends.

#include "Contract/Bus.h"
#include "Platform/macOS/MacNotificationCenter.h"
#include "Tests/Contracts/FoundationLoop.h"
#include "Tests/Fakes/ManualRunLoop.h"

#include <optional>

int main() {
    ManualRunLoop loop;
    MacNotificationCenter center(loop);
    std::optional<Notification> message;
    center.addObserver(
        &message, [&message](const Notification &notification) { message = notification; },
        QStringLiteral("zelvik_socketMessageNotifier"));
    center.listen(Contract::brandName("zelvik"), {});
    turnBothLoopsUntil(loop, [&message] { return message.has_value(); });
    if (message && message->userInfo && message->userInfo->contains(QStringLiteral("WebSocketReAuthType")))
        center.postNotificationName(QStringLiteral("zelvik_webSocketToMainAppNotifier"));
}
