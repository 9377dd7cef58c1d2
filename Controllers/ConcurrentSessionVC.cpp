#include "Controllers/ConcurrentSessionVC.h"

#include "Contract/NoticeDocument.h"
#include "Controllers/NoticeSteps.h"
#include "Support/CustomAPPManager.h"
#include "Support/Logger.h"
#include "Support/NoticeParser.h"
#include "Support/XmlDocument.h"

namespace {

constexpr LogSource logSource("Controllers/ConcurrentSessionVC");

// Empty also when the whole text is no XML.
QString notificationText(const std::optional<XmlDocument> &document, std::string_view name) {
    if (!document)
        return {};
    using namespace Contract::NoticeDocument;
    return document->root().text({ root.data(), notifications.data(), name.data() }).value_or(QString());
}

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
        logSource.error(function, QStringLiteral("Unable to receive Response from Zelvik Sase Client..."));
        setWindowAlpha(*this, 0.0);
        return;
    }
    setWindowAlpha(*this, 1.0);
    logSource.info(function, QStringLiteral("Response received from Zelvik Sase Client..."));
    const auto document = XmlDocument::parse(*response);
    logSource.debug(function, QStringLiteral("Parsing websocket response: ") + *response);
    const auto module = notificationText(document, Contract::NoticeDocument::module);
    headerTextLabel->setStringValue(
        noticeTitle(notificationText(document, Contract::NoticeDocument::head), module));
    textMessageLabel->setStringValue(notificationText(document, Contract::NoticeDocument::body));
    setLogoFromPayload(headerLogoImageView, logSource, function);
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
