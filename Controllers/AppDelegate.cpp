#include "Controllers/AppDelegate.h"

#include "Contract/Brand.h"
#include "Contract/Bus.h"
#include "Controllers/AutoDisconnectHandlerVC.h"
#include "Controllers/ConcurrentSessionVC.h"
#include "Controllers/MaintenanceModeVC.h"
#include "Controllers/PayloadDescription.h"
#include "Controllers/ReAuthHandlerVC.h"
#include "Controllers/ViewController.h"
#include "Platform/FatalStop.h"
#include "Platform/NoticeWindow.h"
#include "Platform/RunLoop.h"
#include "Platform/Storyboard.h"
#include "Support/AnyLanguageBundle.h"
#include "Support/CustomAPPManager.h"
#include "Support/Logger.h"
#include "Support/NoticeParser.h"

#include <algorithm>

namespace {

constexpr LogSource appDelegateLog("Controllers/AppDelegate");
constexpr auto messageFunction = "setRootVCForSocketMessageType(sender:)";

RunLoop::Interval intervalOf(std::int64_t seconds) {
    const auto longest = std::chrono::duration_cast<std::chrono::seconds>(RunLoop::longestInterval);
    return std::clamp(std::chrono::seconds(seconds), std::chrono::seconds::zero(), longest);
}

} // namespace

AppDelegate::AppDelegate(Application &application, RunLoop &runLoop, AnyLanguageBundle &mainBundle,
    const Storyboard &mainStoryboard, DistributedNotificationCenter &notificationCenter)
    : application_(application)
    , runLoop_(runLoop)
    , mainBundle_(mainBundle)
    , mainStoryboard_(mainStoryboard)
    , notificationCenter_(notificationCenter) { }

void AppDelegate::applicationDidFinishLaunching() {
    CustomAPPManager::sharedInstance();
    CustomAPPManager::loadSettings(mainBundle_);
    Logger::resetConfiguration();
    Logger::setUp(CustomAPPManager::logFilePath, Logger::identifier);
    Logger::adopt(Logger::identifier);
    // Built once: a later change of the settings does not change it.
    messageNotificationName_
        = QString::fromStdString(Contract::messageName(CustomAPPManager::LogFolderName.toStdString()));
    notificationCenter_.addObserver(
        this, [this](const Notification &sender) { setRootVCForSocketMessageType(sender); },
        messageNotificationName_);
    appDelegateLog.info("applicationDidFinishLaunching(_:)",
        QStringLiteral("Initiating a Timer to Terminate the application automatically."));
    TerminateAppBasedOnTimeOut();
}

void AppDelegate::applicationWillTerminate() {
    notificationCenter_.removeObserver(this, messageNotificationName_);
}

void AppDelegate::applicationEndIsSettled() {
    notificationCenter_.giveBackNames();
}

std::int64_t AppDelegate::terminationTimeOut() const {
    const auto value
        = mainBundle_.objectForInfoDictionaryKey(QLatin1String(Contract::Brand::timeOutKey.data()));
    return value.metaType().id() == QMetaType::LongLong ? value.toLongLong()
                                                        : Contract::Brand::defaultTimeOut;
}

void AppDelegate::TerminateAppBasedOnTimeOut() {
    constexpr auto function = "TerminateAppBasedOnTimeOut()";
    const auto seconds = terminationTimeOut();
    appDelegateLog.debug(
        function, QStringLiteral("Default APP Termination Time is set to ") + QString::number(seconds));
    application_.endBy(intervalOf(seconds));
    runLoop_.scheduledTimer(intervalOf(seconds), Repeats::No, [this, seconds](Timer &timer) {
        timer.invalidate();
        appDelegateLog.debug(function,
            QStringLiteral("Terminating Web Socket App after ") + QString::number(seconds)
                + QStringLiteral(" Seconds."));
        application_.terminate(this);
    });
}

void AppDelegate::setRootVCForSocketMessageType(const Notification &sender) {
    CustomAPPManager::sharedInstance();
    CustomAPPManager::loadSettings(mainBundle_);
    appDelegateLog.info(messageFunction, QStringLiteral("Message received from Main APP."));
    // The line feed and the blank behind it are part of the text.
    appDelegateLog.debug(messageFunction,
        QStringLiteral("Message from Sase Client APP: \n ")
            + (sender.userInfo ? payloadDescription(*sender.userInfo) : QStringLiteral("nil")));
    CustomAPPManager::payload = sender.userInfo.value_or(QVariantMap());

    const auto language = CustomAPPManager::optionalString(CustomAPPManager::webSocketappLanguageKey)
                              .value_or(QStringLiteral("en"));
    appDelegateLog.info(messageFunction, QStringLiteral("Bundle Language View ") + language);
    mainBundle_.switchLanguage(language);

    // The first flag that is true counts, in this order.
    if (CustomAPPManager::flag(CustomAPPManager::WebSocketType)) {
        appDelegateLog.info(messageFunction, QStringLiteral("Initiating Maintenance Mode View.."));
        initializeRootVC();
    } else if (CustomAPPManager::flag(CustomAPPManager::AutoDisconnectWebSocketType)) {
        appDelegateLog.info(messageFunction, QStringLiteral("Initiating Auto Disconnect Mode View.."));
        initializeAutoDisconnectRootVC();
    } else if (CustomAPPManager::flag(CustomAPPManager::WebSocketReAuthType)) {
        appDelegateLog.info(messageFunction, QStringLiteral("Initiating ReAuth Mode.."));
        intializeReAuthVC();
    } else if (CustomAPPManager::flag(CustomAPPManager::WebSocketAdminDisconnect)) {
        appDelegateLog.info(messageFunction, QStringLiteral("Initiating Concurrent session view.."));
        intializeConcurrentSessionVC();
    } else {
        routeCASB();
    }
}

void AppDelegate::routeCASB() {
    const auto response = CustomAPPManager::optionalString(CustomAPPManager::webSocketResponse);
    if (!response)
        return;
    // Only a check: the notice parses the text again by itself.
    if (!isXml(*response)) {
        appDelegateLog.error(messageFunction, QStringLiteral("Unable to parse xml string : ") + *response);
        application_.terminate(this);
        return;
    }
    appDelegateLog.debug(messageFunction, QStringLiteral("Parsing websocket response: ") + *response);
    appDelegateLog.info(messageFunction, QStringLiteral("Initiating CASB View.."));
    intializeCASBVC();
}

template <class Controller>
void AppDelegate::install(
    const char *function, const char *identifier, Variant variant, const char *message) {
    appDelegateLog.info(function, QLatin1String(message));
    const auto instantiated
        = mainStoryboard_.instantiateControllerWithIdentifier(QString::fromLatin1(identifier));
    const auto controller = std::dynamic_pointer_cast<Controller>(instantiated);
    if (!controller)
        fatalStop(QStringLiteral("the scene \"%1\" has a controller of another class")
                      .arg(QLatin1String(identifier)));
    const auto windows = application_.windows();
    if (windows.empty())
        return;
    auto *window = windows.front();
    if (auto *present = controller->window())
        present->setAlphaValue(1.0);
    if (variant == Variant::A) {
        window->setContentViewController(controller);
        window->setLevel(floatingWindowLevel);
        window->setAlphaValue(1.0);
    } else {
        window->setLevel(floatingWindowLevel);
        window->setAlphaValue(1.0);
        window->setContentViewController(controller);
        window->invalidateCursorRectsForView(controller->view());
    }
}

void AppDelegate::initializeRootVC() {
    install<MaintenanceModeVC>("initializeRootVC()", "MaintenanceModeVC", Variant::A,
        "Web Socket Notification Type : Maintenance Mode Notification...");
}

void AppDelegate::initializeAutoDisconnectRootVC() {
    install<AutoDisconnectHandlerVC>("initializeAutoDisconnectRootVC()", "AutoDisconnectHandlerVC",
        Variant::A, "Web Socket Notification Type : Auto Disconnect Notification...");
}

void AppDelegate::intializeReAuthVC() {
    // The text of the CASB notice, deliberately.
    install<ReAuthHandlerVC>("intializeReAuthVC()", "ReAuthHandlerVC", Variant::B,
        "CASB Socket Notification Type : CASB Mode Notification...");
}

void AppDelegate::intializeConcurrentSessionVC() {
    install<ConcurrentSessionVC>("intializeConcurrentSessionVC()", "ConcurrentSessionVC", Variant::B,
        "Concurrent Session Notification Type...");
}

void AppDelegate::intializeCASBVC() {
    install<ViewController>("intializeCASBVC()", "ViewController", Variant::B,
        "CASB Socket Notification Type : CASB Mode Notification...");
}
