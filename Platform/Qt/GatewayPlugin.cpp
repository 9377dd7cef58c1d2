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

GatewayPlugin::GatewayPlugin(QString path)
    : path_(std::move(path)) { }

bool GatewayPlugin::load() {
    // A FIFO in its place would hold the agent up.
    if (!QFileInfo(path_).isFile())
        return false;
    QLibrary library(path_);
    const auto version = reinterpret_cast<ServiceTierInterfaceVersionFunction *>(
        library.resolve("ServiceTierInterfaceVersion"));
    const auto create = library.resolve("ServiceTierCreate");
    if (!version || !create || version() != serviceTierInterfaceVersion) {
        library.unload(); // so that a mended one in its place is looked at anew
        return false;
    }
    create_ = reinterpret_cast<void *>(create);
    return true;
}

std::unique_ptr<portalGatewayServiceTier> GatewayPlugin::makeClient() {
    if (!create_ && !load())
        return nullptr;
    try {
        auto client = std::unique_ptr<portalGatewayServiceTier>(
            reinterpret_cast<ServiceTierCreateFunction *>(create_)());
        return client ? std::make_unique<GuardedClient>(std::move(client)) : nullptr;
    } catch (...) {
        return nullptr;
    }
}
