#pragma once

#include <functional>
#include <memory>

class Application;
class Bundle;
class DistributedNotificationCenter;
class QString;
class RunLoop;
class portalGatewayServiceTier;

/// What a notice needs from outside. Everything in it outlives the notices.
struct NoticeServices {
    Application &application;
    RunLoop &runLoop;
    const Bundle &mainBundle;
    DistributedNotificationCenter &notificationCenter;
    /// Makes a new gateway client; null when the plug-in is missing or does not fit.
    std::function<std::unique_ptr<portalGatewayServiceTier>()> makeGatewayClient;
    /// Writes one line to standard output.
    std::function<void(const QString &)> printLine;
};
