#pragma once

#include <QString>

#include <functional>
#include <memory>

class portalGatewayServiceTier;

/// The gateway client's plug-in, loaded at its first use and never unloaded. Main thread only.
class GatewayPlugin {
public:
    using ErrorReporter = std::function<void(const QString &)>;

    /// @param path         the library's file
    /// @param reportError  is told, in one line, why there is no client
    GatewayPlugin(QString path, ErrorReporter reportError);

    /// A new client; null when the library is missing, cannot be loaded, lacks the functions, is of another
    /// version, or makes none. What was wrong is tried again at the next call.
    std::unique_ptr<portalGatewayServiceTier> makeClient();

private:
    /// Why the library cannot be used; empty when it is loaded.
    QString load();

    QString path_;
    ErrorReporter reportError_;
    void *create_ = nullptr;
};
