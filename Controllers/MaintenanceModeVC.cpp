#include "Controllers/MaintenanceModeVC.h"

#include "Controllers/NoticeSteps.h"
#include "Support/CustomAPPManager.h"
#include "Support/Logger.h"

namespace {

constexpr LogSource logSource("Controllers/MaintenanceModeVC");

} // namespace

MaintenanceModeVC::MaintenanceModeVC(const NoticeServices &services)
    : NoticeController("MaintenanceModeVC")
    , services_(services) { }

void MaintenanceModeVC::viewWillAppear() {
    NoticeController::viewWillAppear();
    setWindowAlpha(*this, 1.0);
    configureView();
}

void MaintenanceModeVC::configureView() {
    brandHeader(*this, services_.mainBundle, headerLogoImageView, headerView);
    textMessageLabel->setStringValue(CustomAPPManager::string(CustomAPPManager::MaintenanceMessageKey));
    styleOkButton(*okButton);
    applyVendorWindowBackground();
    setHeaderLogo();
}

void MaintenanceModeVC::applyVendorWindowBackground() {
    // The settings are read again here, behind the logo and the header colour, deliberately: in this notice
    // the reload reaches only the vendor word.
    CustomAPPManager::sharedInstance();
    CustomAPPManager::loadSettings(services_.mainBundle);
    styleWindow(*this, vendorWindowBackground());
}

void MaintenanceModeVC::setHeaderLogo() {
    constexpr auto function = "setHeaderLogo()";
    const auto response = CustomAPPManager::optionalString(CustomAPPManager::webSocketResponse);
    if (!response)
        return;
    logSource.debug(function, QStringLiteral("Web Socket XML : ") + *response);
    // A second time, deliberately.
    textMessageLabel->setStringValue(CustomAPPManager::string(CustomAPPManager::MaintenanceMessageKey));
    setLogoFromPayload(headerLogoImageView, logSource, function);
}

void MaintenanceModeVC::okAction() {
    closeAndTerminate(*this, services_.application);
}
