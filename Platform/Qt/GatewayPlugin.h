#pragma once

#include <QString>

#include <memory>

class portalGatewayServiceTier;

/// The gateway client's plug-in, loaded at its first use and never unloaded. Main thread only.
class GatewayPlugin {
public:
    /// @param path  the library's file
    explicit GatewayPlugin(QString path);

    /// A new client; null when the library is missing, lacks the functions, or is of another version. What
    /// was wrong is tried again at the next call.
    std::unique_ptr<portalGatewayServiceTier> makeClient();

private:
    bool load();

    QString path_;
    void *create_ = nullptr;
};
