#include "Controllers/ReAuthHandlerVC.h"

#include "Controllers/Countdown.h"
#include "Controllers/NoticeSteps.h"
#include "Controllers/PayloadDescription.h"
#include "Platform/DistributedNotificationCenter.h"
#include "Support/CustomAPPManager.h"
#include "Support/HeaderBranding.h"
#include "Support/Logger.h"

namespace {

constexpr LogSource logSource("Controllers/ReAuthHandlerVC");
constexpr std::int64_t countdownSeconds = 30;

} // namespace

ReAuthHandlerVC::ReAuthHandlerVC(const NoticeServices &services)
    : NoticeController("ReAuthHandlerVC")
    , services_(services) { }

void ReAuthHandlerVC::viewDidLoad() {
    NoticeController::viewDidLoad();
    auto *button = okayActionButton.get();
    QObject::connect(button, &PushButton::clicked, button, [this] { okayAction(); });
}

void ReAuthHandlerVC::viewWillAppear() {
    NoticeController::viewWillAppear();
    setWindowAlphaFromPayload(*this);
    setupUI();
}

void ReAuthHandlerVC::setupUI() {
    constexpr auto function = "setupUI()";
    // It speaks of auto-disconnect, deliberately, in this notice too.
    logSource.debug(function,
        QStringLiteral(" Auto Disconnect Notification received from Zelvik Sase Client ")
            + payloadDescription(CustomAPPManager::payload) + QStringLiteral("..."));
    applyHeaderBranding(services_.mainBundle, *headerLogoImageView, *headerView, rootView(*this));
    styleOkButton(*okayActionButton);
    setLogoFromPayload(headerLogoImageView, logSource, function);
    createTimer(countdownSeconds);
}

void ReAuthHandlerVC::createTimer(std::int64_t mins) {
    Countdown::start(
        services_.runLoop, shared_from_this(), [this]() -> TextField & { return *timerLabel; },
        [this]() -> PushButton & { return *okayActionButton; },
        Countdown {
            .seconds = mins,
            // English in every language, deliberately: these texts are not looked up.
            .line =
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
    setWindowAlpha(*this, 0.0);
    requestReAuthenticationAndQuit("okayAction(_:)");
}

void ReAuthHandlerVC::requestReAuthenticationAndQuit(const char *function) {
    logSource.info(function, QStringLiteral("Sending Re-Auth Notification to Main App from Socket app"));
    services_.notificationCenter.postNotificationName(CustomAPPManager::mainAppNotifierName());
    terminateAfterDelay(*this, services_.runLoop, services_.application);
}
