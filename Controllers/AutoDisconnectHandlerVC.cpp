#include "Controllers/AutoDisconnectHandlerVC.h"

#include "Controllers/Countdown.h"
#include "Controllers/NoticeSteps.h"
#include "Controllers/PayloadDescription.h"
#include "Platform/Application.h"
#include "Platform/Bundle.h"
#include "Support/CustomAPPManager.h"
#include "Support/HeaderBranding.h"
#include "Support/Logger.h"

namespace {

constexpr LogSource logSource("Controllers/AutoDisconnectHandlerVC");
constexpr std::int64_t countdownSeconds = 30;

} // namespace

AutoDisconnectHandlerVC::AutoDisconnectHandlerVC(const NoticeServices &services)
    : NoticeController("AutoDisconnectHandlerVC")
    , services_(services) { }

void AutoDisconnectHandlerVC::viewDidLoad() {
    NoticeController::viewDidLoad();
    auto *button = okayActionButton.get();
    QObject::connect(button, &PushButton::clicked, button, [this] { okayAction(); });
}

void AutoDisconnectHandlerVC::viewWillAppear() {
    NoticeController::viewWillAppear();
    setWindowAlphaFromPayload(*this);
    setupUI();
}

void AutoDisconnectHandlerVC::setupUI() {
    constexpr auto function = "setupUI()";
    logSource.debug(function,
        QStringLiteral(" Auto Disconnect Notification received from Zelvik Sase Client ")
            + payloadDescription(CustomAPPManager::payload) + QStringLiteral("..."));
    applyHeaderBranding(services_.mainBundle, *headerLogoImageView, *headerView, rootView(*this));
    styleOkButton(*okayActionButton);
    setLogoFromPayload(headerLogoImageView, logSource, function);

    const bool vpnIsConnected = CustomAPPManager::flag(CustomAPPManager::AutoDisconnectVPNStatus);
    // Two blanks before the value, deliberately.
    logSource.info(function,
        QStringLiteral("VPN Connection Status :  ")
            + (vpnIsConnected ? QStringLiteral("true") : QStringLiteral("false")));
    timerLabel->setHidden(!vpnIsConnected);
    headerLabel->setStringValue(localized(vpnIsConnected ? "Attention" : "VPN Disconnected"));
    policyDisconnectLabel->setStringValue(
        CustomAPPManager::string(CustomAPPManager::AutoDisconnectMessageKey));
    if (vpnIsConnected)
        startCountdown();
}

void AutoDisconnectHandlerVC::startCountdown() {
    Countdown::start(
        services_.runLoop, shared_from_this(), [this]() -> TextField & { return *timerLabel; },
        [this]() -> PushButton & { return *okayActionButton; },
        Countdown {
            .seconds = countdownSeconds,
            .line = [this](std::int64_t secondsLeft) { return countdownLine(secondsLeft); },
            .secondsLeft = nullptr,
            // At once, deliberately: no record, no notification and no second's delay.
            .ended = [this] { services_.application.terminate(this); },
        });
}

// No blank between the number and the unit, deliberately: a translation that wants one carries it.
QString AutoDisconnectHandlerVC::countdownLine(std::int64_t secondsLeft) const {
    return localized("This window will auto close in") + u' ' + QString::number(secondsLeft)
        + localized("seconds");
}

QString AutoDisconnectHandlerVC::localized(const char *key) const {
    return services_.mainBundle.localizedStringForKey(QString::fromLatin1(key), {}, {});
}

// The countdown, if any, goes on until the application ends.
void AutoDisconnectHandlerVC::okayAction() {
    setWindowAlpha(*this, 0.0);
    terminateAfterDelay(*this, services_.runLoop, services_.application);
}
