// A gateway client of the right version that lacks the function that makes one.
#include "ServiceTier/portalGatewayServiceTier.h"

extern "C" {
[[gnu::visibility("default")]] ServiceTierInterfaceVersionFunction ServiceTierInterfaceVersion;

int ServiceTierInterfaceVersion() {
    return serviceTierInterfaceVersion;
}
}
