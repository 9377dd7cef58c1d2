// The Notice Agent: shows the notices of a main security client in one floating window.
//
// What is what:
//
//   QtApplication               the process: the desktop, the one window, the end
//   QtNoticeWindow              the window on the screen
//   QtRunLoop                   timers and the main queue
//   SystemNotificationCenter    messages in, the re-authentication notification out
//   FileBundle                  the folder NoticeAgent.app/Contents around the executable
//   AnyLanguageBundle           the same, its texts in the language of the latest message
//   GatewayPlugin               the gateway client in Contents/Frameworks, loaded at the first request
//   Storyboard                  the scenes: from an identifier to a controller with its view
//   AppDelegate                 launch, end, and the way of each message to its notice
//   ViewController and others   the five notices
//
// A message flows forward: bus, AppDelegate, payload, language, route, installer, window, controller, ticks,
// one request or one notification, terminate.

#include "Contract/Bus.h"
#include "Controllers/AppDelegate.h"
#include "Controllers/MainStoryboard.h"
#include "Controllers/WarmUp.h"
#include "Platform/Qt/FileBundle.h"
#include "Platform/Qt/GatewayPlugin.h"
#include "Platform/Qt/QtApplication.h"
#include "Platform/Qt/QtRunLoop.h"
#include "Platform/Qt/StandardStreams.h"
#include "Platform/SystemNotificationCenter.h"
#include "ServiceTier/portalGatewayServiceTier.h"
#include "Support/AnyLanguageBundle.h"
#include "Support/CustomAPPManager.h"
#include "Support/Logger.h"

int main(int, char **argv) {
    const LogSource platformLog("Platform");
    const auto reportError = [platformLog](const QString &line) { platformLog.error("main()", line); };
    // There is no command line: Qt is handed the program's name alone.
    QtApplication application(argv[0], reportError);

    const auto applicationBundle = FileBundle::mainBundle();
    AnyLanguageBundle mainBundle(applicationBundle);
    QtRunLoop runLoop;
    const auto notificationCenter = makeSystemNotificationCenter(runLoop, reportError);
    GatewayPlugin gateway(
        applicationBundle.frameworksPath() + QStringLiteral("/" GATEWAY_LIBRARY), reportError);
    const NoticeServices services {
        .application = application,
        .runLoop = runLoop,
        .mainBundle = mainBundle,
        .notificationCenter = *notificationCenter,
        .makeGatewayClient = [&gateway] { return gateway.makeClient(); },
        .printLine = StandardStreams::printLine,
    };
    const auto mainStoryboard = makeMainStoryboard(services);
    AppDelegate delegate(application, runLoop, mainBundle, mainStoryboard, *notificationCenter);
    const auto listen = [&] {
        const auto brand = CustomAPPManager::LogFolderName;
        const auto brandName = Contract::brandName(brand.toStdString());
        application.setBrand(brand, QString::fromStdString(brandName)); // the package installs it so
        notificationCenter->listen(brandName,
            {
                .begun =
                    [&] {
                        application.beginAccessibility();
                        warmUp(runLoop, mainBundle, mainStoryboard);
                    },
                .activated = [&] { application.activate(); },
                .anotherRuns = [&] { application.terminate(&delegate); },
            });
    };
    return application.run(delegate, listen, [&] { runLoop.attach(); });
}
