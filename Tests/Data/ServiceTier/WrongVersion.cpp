// A gateway client built for a later interface: it must not be used.
#include "ServiceTier/portalGatewayServiceTier.h"

#include <cstdlib>

extern "C" {
[[gnu::visibility("default")]] ServiceTierInterfaceVersionFunction ServiceTierInterfaceVersion;
[[gnu::visibility("default")]] ServiceTierCreateFunction ServiceTierCreate;

int ServiceTierInterfaceVersion() {
    return serviceTierInterfaceVersion + 1;
}

// Whoever gets here has not looked at the version.
portalGatewayServiceTier *ServiceTierCreate() {
    std::abort();
}
}
