#include "Controllers/ConcurrentSessionVC.h"

#include "Support/CustomAPPManager.h"
#include "Support/NoticeParser.h"

ConcurrentSessionVC::ConcurrentSessionVC(const NoticeServices &services)
    : Notice("ConcurrentSessionVC", LogSource("Controllers/ConcurrentSessionVC"), services) { }

void ConcurrentSessionVC::viewWillAppear() {
    NoticeController::viewWillAppear();
    setWindowAlpha(1.0);
    updateLabel();
    applyNoticeStyle();
}

void ConcurrentSessionVC::updateLabel() {
    constexpr auto function = "updateLabel()";
    const auto response = CustomAPPManager::optionalString(CustomAPPManager::webSocketResponse);
    if (!response) {
        logSource_.error(function, QStringLiteral("Unable to receive Response from Zelvik Sase Client..."));
        setWindowAlpha(0.0);
        return;
    }
    setWindowAlpha(1.0);
    logSource_.info(function, QStringLiteral("Response received from Zelvik Sase Client..."));
    const auto notice = parseSessionNotice(*response);
    logSource_.debug(function, QStringLiteral("Parsing websocket response: ") + *response);
    headerTextLabel->setStringValue(notice.title);
    textMessageLabel->setStringValue(notice.body);
    setLogoFromPayload(function);
}

void ConcurrentSessionVC::applyNoticeStyle() {
    headerView->setLayerBackgroundColor(CustomAPPManager::noticeAccentColor());
    view()->setLayerBackgroundColor(Qt::white);
    styleOkButton(*okButton);
    styleTitleBar();
}

void ConcurrentSessionVC::styleTitleBar() {
    styleWindow(QColor(30, 34, 52));
}

void ConcurrentSessionVC::okAction() {
    closeAndTerminate();
}
