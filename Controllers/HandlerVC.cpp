#include "Controllers/HandlerVC.h"

#include "Controllers/NoticeSteps.h"
#include "Controllers/PayloadDescription.h"
#include "Support/CustomAPPManager.h"

HandlerVC::HandlerVC(const char *className, LogSource logSource, const NoticeServices &services)
    : NoticeController(className)
    , services_(services)
    , logSource_(logSource) { }

void HandlerVC::viewWillAppear() {
    NoticeController::viewWillAppear();
    setWindowAlphaFromPayload(*this);
    setupUI();
}

void HandlerVC::beginSetup() {
    constexpr auto function = "setupUI()";
    // It speaks of auto-disconnect in both notices, deliberately.
    logSource_.debug(function,
        QStringLiteral(" Auto Disconnect Notification received from Zelvik Sase Client ")
            + payloadDescription(CustomAPPManager::payload) + QStringLiteral("..."));
    brandHeader(*this, services_.mainBundle, headerLogoImageView, headerView);
    styleOkButton(*okayActionButton);
    setLogoFromPayload(headerLogoImageView, logSource_, function);
}
