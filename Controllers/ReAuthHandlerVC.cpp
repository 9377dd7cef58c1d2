#include "Controllers/ReAuthHandlerVC.h"

#include "Controllers/Countdown.h"
#include "Platform/DistributedNotificationCenter.h"
#include "Support/CustomAPPManager.h"

ReAuthHandlerVC::ReAuthHandlerVC(const NoticeServices &services)
    : HandlerVC("ReAuthHandlerVC", LogSource("Controllers/ReAuthHandlerVC"), services) { }

void ReAuthHandlerVC::setupUI() {
    beginSetup();
    createTimer(countdownSeconds);
}

void ReAuthHandlerVC::createTimer(std::int64_t mins) {
    Countdown::start(services_, *this, timerLabel, okayActionButton,
        Countdown {
            .seconds = mins,
            // English in every language, deliberately: these texts are not looked up.
            .text =
                [](std::int64_t secondsLeft) {
                    return QStringLiteral("This window will auto close in ") + QString::number(secondsLeft)
                        + QStringLiteral(" seconds");
                },
            .secondsLeft = nullptr,
            .ended = [this] { requestReAuthenticationAndQuit("createTimer(mins:)"); },
        });
}

// The countdown goes on until the application ends.
void ReAuthHandlerVC::okayAction() {
    setWindowAlpha(0.0);
    requestReAuthenticationAndQuit("okayAction(_:)");
}

void ReAuthHandlerVC::requestReAuthenticationAndQuit(const char *function) {
    logSource_.info(function, QStringLiteral("Sending Re-Auth Notification to Main App from Socket app"));
    services_.notificationCenter.postNotificationName(CustomAPPManager::mainAppNotifierName());
    terminateAfterDelay();
}
