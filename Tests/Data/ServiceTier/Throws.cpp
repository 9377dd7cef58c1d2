// A gateway client whose making fails with an exception.
#include "ServiceTier/portalGatewayServiceTier.h"

#include <stdexcept>

extern "C" {
[[gnu::visibility("default")]] ServiceTierInterfaceVersionFunction ServiceTierInterfaceVersion;
[[gnu::visibility("default")]] ServiceTierCreateFunction ServiceTierCreate;

int ServiceTierInterfaceVersion() {
    return serviceTierInterfaceVersion;
}

portalGatewayServiceTier *ServiceTierCreate() {
    throw std::runtime_error("no client today");
}
}
