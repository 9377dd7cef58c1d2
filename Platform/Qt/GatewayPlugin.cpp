#include "Platform/Qt/GatewayPlugin.h"

#include "ServiceTier/portalGatewayServiceTier.h"

#include <QLibrary>

#include <utility>

GatewayPlugin::GatewayPlugin(QString path)
    : path_(std::move(path)) { }

bool GatewayPlugin::load() {
    QLibrary library(path_);
    const auto version = reinterpret_cast<ServiceTierInterfaceVersionFunction *>(
        library.resolve("ServiceTierInterfaceVersion"));
    const auto create = library.resolve("ServiceTierCreate");
    if (!version || !create || version() != serviceTierInterfaceVersion)
        return false;
    create_ = reinterpret_cast<void *>(create);
    return true;
}

std::unique_ptr<portalGatewayServiceTier> GatewayPlugin::makeClient() {
    if (!create_ && !load())
        return nullptr;
    return std::unique_ptr<portalGatewayServiceTier>(
        reinterpret_cast<ServiceTierCreateFunction *>(create_)());
}
