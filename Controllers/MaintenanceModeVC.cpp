#include "Controllers/MaintenanceModeVC.h"

#include "Support/CustomAPPManager.h"

MaintenanceModeVC::MaintenanceModeVC(const NoticeServices &services)
    : Notice("MaintenanceModeVC", LogSource("Controllers/MaintenanceModeVC"), services) { }

void MaintenanceModeVC::viewWillAppear() {
    NoticeController::viewWillAppear();
    setWindowAlpha(1.0);
    configureView();
}

void MaintenanceModeVC::configureView() {
    brandHeader();
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
    styleWindow(vendorWindowBackground());
}

void MaintenanceModeVC::setHeaderLogo() {
    constexpr auto function = "setHeaderLogo()";
    const auto response = CustomAPPManager::optionalString(CustomAPPManager::webSocketResponse);
    if (!response)
        return;
    logSource_.debug(function, QStringLiteral("Web Socket XML : ") + *response);
    // A second time, deliberately.
    textMessageLabel->setStringValue(CustomAPPManager::string(CustomAPPManager::MaintenanceMessageKey));
    setLogoFromPayload(function);
}

void MaintenanceModeVC::okAction() {
    closeAndTerminate();
}
