#include "Controllers/ConcurrentSessionVC.h"

#include "Controllers/NoticeSteps.h"
#include "Support/CustomAPPManager.h"
#include "Support/Logger.h"
#include "Support/NoticeParser.h"

namespace {

constexpr LogSource concurrentSessionLog("Controllers/ConcurrentSessionVC");

} // namespace

ConcurrentSessionVC::ConcurrentSessionVC(const NoticeServices &services)
    : NoticeController("ConcurrentSessionVC")
    , services_(services) { }

void ConcurrentSessionVC::viewWillAppear() {
    NoticeController::viewWillAppear();
    setWindowAlpha(*this, 1.0);
    updateLabel();
    applyNoticeStyle();
}

void ConcurrentSessionVC::updateLabel() {
    constexpr auto function = "updateLabel()";
    const auto response = CustomAPPManager::optionalString(CustomAPPManager::webSocketResponse);
    if (!response) {
        concurrentSessionLog.error(
            function, QStringLiteral("Unable to receive Response from Zelvik Sase Client..."));
        setWindowAlpha(*this, 0.0);
        return;
    }
    setWindowAlpha(*this, 1.0);
    concurrentSessionLog.info(function, QStringLiteral("Response received from Zelvik Sase Client..."));
    const auto notice = parseSessionNotice(*response);
    concurrentSessionLog.debug(function, QStringLiteral("Parsing websocket response: ") + *response);
    headerTextLabel->setStringValue(notice.title);
    textMessageLabel->setStringValue(notice.body);
    setLogoFromPayload(headerLogoImageView, concurrentSessionLog, function);
}

void ConcurrentSessionVC::applyNoticeStyle() {
    setLayer(*headerView, CustomAPPManager::noticeAccentColor());
    setLayer(rootView(*this), Qt::white);
    styleOkButton(*okButton);
    styleTitleBar();
}

void ConcurrentSessionVC::styleTitleBar() {
    styleWindow(*this, QColor(30, 34, 52));
}

void ConcurrentSessionVC::okAction() {
    closeAndTerminate(*this, services_.application);
}
