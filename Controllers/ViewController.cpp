#include "Controllers/ViewController.h"

#include "Controllers/Countdown.h"
#include "Platform/Application.h"
#include "Platform/NoticeWindow.h"
#include "Platform/RunLoop.h"
#include "Platform/Views/LayOutNow.h"
#include "ServiceTier/portalGatewayServiceTier.h"
#include "Support/CustomAPPManager.h"
#include "Support/NoticeParser.h"

#include <array>

namespace {

constexpr LogSource viewControllerLog("Controllers/ViewController");

constexpr std::int64_t secondsLeftAtRequest = 5;
constexpr double okButtonTopWithoutActivity = 25.0;

QString statusDescription(std::optional<int> status) {
    return status ? QStringLiteral("Optional(%1)").arg(*status) : QStringLiteral("nil");
}

void logClosed(const ServiceTierResponse &response) {
    viewControllerLog.debug("postUrlOnCloseActivity(url:)",
        QStringLiteral("Close Activity ") + statusDescription(response.httpStatusCode));
}

} // namespace

ViewController::ViewController(const NoticeServices &services)
    : Notice("ViewController", viewControllerLog, services) { }

void ViewController::viewWillAppear() {
    NoticeController::viewWillAppear();
    setWindowAlphaFromPayload();
    changeToolbarTitle();
    parseWebSocketResponse();
}

void ViewController::parseWebSocketResponse() {
    constexpr auto function = "parseWebSocketResponse()";
    const auto response = CustomAPPManager::optionalString(CustomAPPManager::webSocketResponse);
    if (!response) {
        viewControllerLog.error(
            function, QStringLiteral("Unable to receive Response from Zelvik Sase Client..."));
        setWindowAlpha(0.0);
        return;
    }
    setWindowAlpha(1.0);
    viewControllerLog.info(function, QStringLiteral("Response received from Zelvik Sase Client..."));
    updateNotificationWindow(*response);
    setLogoFromPayload(function);
}

void ViewController::updateNotificationWindow(const QString &xmlStr) {
    auto data = parseNotice(xmlStr);
    if (!data)
        return;
    services_.runLoop.async([self = std::static_pointer_cast<ViewController>(shared_from_this()),
                                data = std::move(*data)] { self->setupView(data); });
}

void ViewController::setupView(const SocketPayload &data) {
    fillLabels(data);
    viewControllerLog.info("setupView(data:)",
        QStringLiteral("Parsing successful, Creating Timer Instance to update Auto Close UI"));
    updateExpansionToolTips();
    collapseEmptyRows();
    Countdown::setHidden(*this, *autoCloseLabel, true);
    if (!activityText->stringValue().isEmpty())
        startCountdown(data);
    auto *noticeWindow = window();
    if (!noticeWindow)
        return viewDidDisappear(); // replaced before it was filled
    noticeWindow->setAlphaValue(1.0);
    noticeWindow->makeKeyAndOrderFront();
    noticeWindow->setLevel(floatingWindowLevel);
}

// The entries go by their place, deliberately: the first is the activity, the second the application, the
// last the URL. Of two entries the second stands in two rows, and so does the only one.
void ViewController::fillLabels(const SocketPayload &data) {
    SocketHeaderTitleLabel->setStringValue(data.module);
    applicationInformationLabel->setStringValue(data.information);

    const auto &titles = data.titleLabels;
    activityTitleLabel->setStringValue(titles.isEmpty() ? QStringLiteral("Activity") : titles.first());
    urlTitleLabel->setStringValue(titles.isEmpty() ? QStringLiteral("URL") : titles.last());
    if (titles.size() > 1)
        applicationTitleLabel->setStringValue(titles[1]);

    const auto &details = data.details;
    if (details.size() > 1)
        applicationText->setStringValue(details[1]);
    activityText->setStringValue(details.isEmpty() ? QString() : details.first());
    urlText->setStringValue(details.isEmpty() ? QString() : details.last());

    // Two blanks before the unit, deliberately; the label is hidden until the first tick sets it anew.
    autoCloseLabel->setStringValue(localized("This window will auto close in ")
        + QString::number(data.timeout) + u' ' + u' ' + localized("seconds"));
    autoCloseSeconds = data.timeout;
}

void ViewController::updateExpansionToolTips() {
    const std::array labels { applicationInformationLabel.get(), activityText.get(), urlText.get(),
        applicationText.get() };
    // The frames are those of the texts just set.
    layOutNow(*view());
    for (auto *label : labels) {
        label->setAllowsExpansionToolTips(label->height() < label->measuredHeight(label->width()));
        label->resetCursorRects();
    }
}

void ViewController::collapseEmptyRows() {
    const bool hasNoActivity = activityText->stringValue().isEmpty();
    if (hasNoActivity)
        activityHeightConstant->setConstant(0.0);
    if (applicationText->stringValue().isEmpty())
        applicationHeightConstant->setConstant(0.0);
    if (urlText->stringValue().isEmpty())
        urlHeightConstant->setConstant(0.0);
    if (hasNoActivity) {
        urlText->setHidden(true);
        OkButtonTopConstraints->setConstant(okButtonTopWithoutActivity);
    }
}

void ViewController::startCountdown(const SocketPayload &data) {
    closeActivityUrl = data.activityUrl;
    // Hidden until the first tick: what a screen reader says of it by then.
    autoCloseLabel->setProperty(countdownStartProperty, countdownText(data.timeout));
    Countdown::start(services_, *this, autoCloseLabel, okButton,
        Countdown {
            .seconds = data.timeout,
            .text = [this](std::int64_t secondsLeft) { return countdownText(secondsLeft); },
            .secondsLeft =
                [this, url = data.activityUrl](std::int64_t secondsLeft) {
                    if (secondsLeft == secondsLeftAtRequest)
                        postUrlOnCloseActivity(url);
                },
            .ended = [this] { services_.application.terminate(this); },
        });
}

QString ViewController::countdownText(std::int64_t secondsLeft) const {
    return localized("This window will auto close in") + u' ' + QString::number(secondsLeft) + u' '
        + localized("seconds");
}

void ViewController::changeToolbarTitle() {
    brandHeader();
    styleOkButton(*okButton);
    if (window())
        window()->setTitlebarAppearsTransparent(true);
    viewControllerLog.info("changeToolbarTitle()", QStringLiteral("Vendor is ") + CustomAPPManager::Vendor);
    services_.printLine(CustomAPPManager::Vendor);
    if (window())
        window()->setBackgroundColor(vendorWindowBackground());
}

void ViewController::okAction() {
    closeWindowAndQuit();
}

void ViewController::closeWindowAndQuit() {
    setWindowAlpha(0.0);
    postUrlOnCloseActivity(closeActivityUrl);
    terminateAfterDelay();
}

void ViewController::postUrlOnCloseActivity(const QString &url) {
    // The blank before the comma is part of the text.
    viewControllerLog.info("postUrlOnCloseActivity(url:)",
        QStringLiteral("Closing Active window , Calling Activity URL: ") + url);
    const auto client = services_.makeGatewayClient();
    if (!client)
        return logClosed({});
    client->request(url.toStdString(), nullptr, "GET", logClosed);
}
