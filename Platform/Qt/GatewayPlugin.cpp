#include "Platform/Qt/GatewayPlugin.h"

#include "ServiceTier/portalGatewayServiceTier.h"

#include <QFileInfo>
#include <QLibrary>

#include <utility>

namespace {

/// Keeps a site's own client from letting an exception out: what it throws is a response without a status.
class GuardedClient final : public portalGatewayServiceTier {
public:
    explicit GuardedClient(std::unique_ptr<portalGatewayServiceTier> client)
        : client_(std::move(client)) { }

    void request(const std::string &url, const Parameters *parameters, const std::string &method,
        Completion completion) override {
        try {
            client_->request(url, parameters, method, completion);
        } catch (...) {
            completion({});
        }
    }

private:
    std::unique_ptr<portalGatewayServiceTier> client_;
};

} // namespace

GatewayPlugin::GatewayPlugin(QString path, ErrorReporter reportError)
    : path_(std::move(path))
    , reportError_(std::move(reportError)) { }

QString GatewayPlugin::load() {
    // A FIFO in its place would hold the agent up.
    if (!QFileInfo(path_).isFile())
        return QStringLiteral("there is no such file");
    QLibrary library(path_);
    if (!library.load())
        return library.errorString();
    const auto version = reinterpret_cast<ServiceTierInterfaceVersionFunction *>(
        library.resolve("ServiceTierInterfaceVersion"));
    const auto create = library.resolve("ServiceTierCreate");
    if (version && create && version() == serviceTierInterfaceVersion) {
        create_ = reinterpret_cast<void *>(create);
        return {};
    }
    library.unload(); // so that a mended one in its place is looked at anew
    return version && create ? QStringLiteral("it is of another version")
                             : QStringLiteral("it lacks the functions");
}

std::unique_ptr<portalGatewayServiceTier> GatewayPlugin::makeClient() {
    QString reason;
    try {
        if (!create_)
            reason = load();
        if (create_) {
            auto client = std::unique_ptr<portalGatewayServiceTier>(
                reinterpret_cast<ServiceTierCreateFunction *>(create_)());
            if (client)
                return std::make_unique<GuardedClient>(std::move(client));
            reason = QStringLiteral("it makes no client");
        }
    } catch (...) {
        reason = QStringLiteral("it threw an exception");
    }
    reportError_(QStringLiteral("The gateway client %1 cannot be used: %2.").arg(path_, reason));
    return nullptr;
}
