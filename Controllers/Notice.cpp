#include "Controllers/Notice.h"

#include "Contract/Brand.h"
#include "Controllers/PayloadDescription.h"
#include "Platform/Application.h"
#include "Platform/Bundle.h"
#include "Platform/NoticeWindow.h"
#include "Platform/RunLoop.h"
#include "Support/CustomAPPManager.h"
#include "Support/HeaderBranding.h"

namespace {

constexpr std::chrono::milliseconds terminationDelay(1000);
constexpr double buttonCornerRadius = 3.0;

} // namespace

Notice::Notice(const char *className, LogSource logSource, const NoticeServices &services)
    : NoticeController(className)
    , services_(services)
    , logSource_(logSource) { }

void Notice::setWindowAlphaFromPayload() {
    setWindowAlpha(CustomAPPManager::flag(CustomAPPManager::WebSocketType) ? 0.0 : 1.0);
}

void Notice::brandHeader() {
    // One after the other: of several outlets that are not connected the first is named.
    auto &logo = *headerLogoImageView;
    auto &header = *headerView;
    applyHeaderBranding(services_.mainBundle, logo, header, *view());
}

void Notice::setLogoFromPayload(const char *function) {
    const auto bytes = CustomAPPManager::data(CustomAPPManager::HeaderLogoImage);
    if (!bytes)
        return;
    logSource_.info(function,
        QStringLiteral("Setting Logo from Zelvik Sase Client ") + QString::number(bytes->size())
            + QStringLiteral(" bytes"));
    headerLogoImageView->setImage(Image::withData(*bytes));
}

void Notice::styleOkButton(PushButton &button) {
    button.setCornerRadius(buttonCornerRadius);
    button.setLayerBackgroundColor(CustomAPPManager::noticeAccentColor());
}

void Notice::styleWindow(const QColor &background) {
    if (!window())
        return;
    window()->setTitlebarAppearsTransparent(true);
    window()->setBackgroundColor(background);
}

QColor Notice::vendorWindowBackground() {
    const bool isBlack = CustomAPPManager::Vendor == QLatin1String(Contract::Brand::blackVendor.data());
    return isBlack ? QColor(0, 0, 0) : QColor(30, 34, 52);
}

QString Notice::localized(const char *key) const {
    return services_.mainBundle.localizedStringForKey(QString::fromLatin1(key), {}, {});
}

void Notice::terminateAfterDelay() {
    auto &application = services_.application;
    application.endIsSettled();
    services_.runLoop.asyncAfter(
        terminationDelay, [self = shared_from_this(), &application] { application.terminate(self.get()); });
}

void Notice::closeAndTerminate() {
    setWindowAlpha(0.0);
    services_.application.terminate(this);
}

void HandlerVC::viewWillAppear() {
    NoticeController::viewWillAppear();
    setWindowAlphaFromPayload();
    setupUI();
}

void HandlerVC::beginSetup() {
    constexpr auto function = "setupUI()";
    // It speaks of auto-disconnect in both notices, deliberately.
    logSource_.debug(function,
        QStringLiteral(" Auto Disconnect Notification received from Zelvik Sase Client ")
            + payloadDescription(CustomAPPManager::payload) + QStringLiteral("..."));
    brandHeader();
    styleOkButton(*okayActionButton);
    setLogoFromPayload(function);
}
