#include "Controllers/AutoDisconnectHandlerVC.h"

#include "Controllers/Countdown.h"
#include "Platform/Application.h"
#include "Support/CustomAPPManager.h"

AutoDisconnectHandlerVC::AutoDisconnectHandlerVC(const NoticeServices &services)
    : HandlerVC("AutoDisconnectHandlerVC", LogSource("Controllers/AutoDisconnectHandlerVC"), services) { }

void AutoDisconnectHandlerVC::setupUI() {
    beginSetup();
    const bool vpnIsConnected = CustomAPPManager::flag(CustomAPPManager::AutoDisconnectVPNStatus);
    // Two blanks before the value, deliberately.
    logSource_.info("setupUI()",
        QStringLiteral("VPN Connection Status :  ")
            + (vpnIsConnected ? QStringLiteral("true") : QStringLiteral("false")));
    Countdown::setHidden(*this, *timerLabel, !vpnIsConnected);
    headerLabel->setStringValue(localized(vpnIsConnected ? "Attention" : "VPN Disconnected"));
    policyDisconnectLabel->setStringValue(
        CustomAPPManager::string(CustomAPPManager::AutoDisconnectMessageKey));
    if (vpnIsConnected)
        startCountdown();
}

void AutoDisconnectHandlerVC::startCountdown() {
    Countdown::start(services_, *this, timerLabel, okayActionButton,
        Countdown {
            .seconds = countdownSeconds,
            .text = [this](std::int64_t secondsLeft) { return countdownText(secondsLeft); },
            .secondsLeft = nullptr,
            // At once, deliberately: no record, no notification and no second's delay.
            .ended = [this] { services_.application.terminate(this); },
        });
}

// No blank between the number and the unit, deliberately: a translation that wants one carries it.
QString AutoDisconnectHandlerVC::countdownText(std::int64_t secondsLeft) const {
    return localized("This window will auto close in") + u' ' + QString::number(secondsLeft)
        + localized("seconds");
}

// The countdown, if any, goes on until the application ends.
void AutoDisconnectHandlerVC::okayAction() {
    setWindowAlpha(0.0);
    terminateAfterDelay();
}
