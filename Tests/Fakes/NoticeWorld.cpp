#include "Tests/Fakes/NoticeWorld.h"

#include "Controllers/MainStoryboard.h"
#include "Controllers/ViewController.h"
#include "Platform/Views/NoticeStyle.h"
#include "Support/CustomAPPManager.h"

#include <QApplication>

namespace {

void resetProcessWideValues() {
    static const auto initialUrl = ViewController::closeActivityUrl;
    static const auto initialSeconds = ViewController::autoCloseSeconds;
    CustomAPPManager::payload = {};
    CustomAPPManager::AppLogo = {};
    CustomAPPManager::Vendor = {};
    CustomAPPManager::LogFolderName = {};
    CustomAPPManager::globalAppViewBackgroundColor = {};
    CustomAPPManager::logFilePath = {};
    ViewController::closeActivityUrl = initialUrl;
    ViewController::autoCloseSeconds = initialSeconds;
}

} // namespace

QtApplicationExists::QtApplicationExists() {
    if (QApplication::instance())
        return;
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    static int argumentCount = 1;
    static char name[] = "tests";
    static char *arguments[] = { name, nullptr };
    QApplication::setStyle(new NoticeStyle);
    // Never deleted: what the library keeps for it goes before the end of the process would come to it.
    [[maybe_unused]] static const auto *const application = new QApplication(argumentCount, arguments);
    QApplication::setQuitOnLastWindowClosed(false);
}

QtApplicationExists::~QtApplicationExists() {
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

NoticeWorld::NoticeWorld()
    : services { .application = application,
        .runLoop = runLoop,
        .mainBundle = mainBundle,
        .notificationCenter = notificationCenter,
        .makeGatewayClient = [this] { return gateway.makeClient(); },
        .printLine = [this](const QString &line) { journal.add(QStringLiteral("print ") + line); } }
    , storyboard(makeMainStoryboard(services)) {
    resetProcessWideValues();
    files.setSettings(settings());
    files.addImage(QStringLiteral("brandLogo"), brandLogoColor());
    application.setWindows({ &window });
}

NoticeWorld::~NoticeWorld() = default;

QVariantMap NoticeWorld::settings(const QString &vendor) {
    return { { QStringLiteral("AppLogo"), QStringLiteral("brandLogo") }, { QStringLiteral("Vendor"), vendor },
        { QStringLiteral("LogFolderName"), QStringLiteral("zelvik") },
        { QStringLiteral("globalAppViewBackgroundColor"), QStringLiteral("#112233") } };
}

void NoticeWorld::launch() {
    application.setDelegate(&delegate);
    files.removeSettings();
    delegate.applicationDidFinishLaunching();
    log.attachToCurrentLogger();
    files.setSettings(settings());
    journal.clear();
}

void NoticeWorld::receive(const QVariantMap &message) {
    const auto names = notificationCenter.observedNames();
    for (const auto &name : names)
        notificationCenter.post({ name, {}, message });
    runLoop.settle();
}

std::shared_ptr<NoticeController> NoticeWorld::instantiate(
    const char *identifier, const QVariantMap &message) {
    CustomAPPManager::payload = message;
    CustomAPPManager::loadSettings(mainBundle);
    return storyboard.instantiateControllerWithIdentifier(QString::fromLatin1(identifier));
}

std::shared_ptr<NoticeController> NoticeWorld::appearController(
    const char *identifier, const QVariantMap &message) {
    auto controller = instantiate(identifier, message);
    journal.clear();
    window.setContentViewController(controller);
    return controller;
}

QColor paintedColor(QWidget &view, int x, int y) {
    const auto image = view.grab().toImage();
    return image.pixelColor(x < 0 ? image.width() + x : x, y < 0 ? image.height() + y : y);
}
