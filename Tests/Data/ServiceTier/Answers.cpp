// A gateway client that answers every request with 204, before request() returns and with no network.
#include "ServiceTier/portalGatewayServiceTier.h"

namespace {

class Answers final : public portalGatewayServiceTier {
public:
    void request(
        const std::string &, const Parameters *, const std::string &, Completion completion) override {
        completion({ 204 });
    }
};

} // namespace

extern "C" {
[[gnu::visibility("default")]] ServiceTierInterfaceVersionFunction ServiceTierInterfaceVersion;
[[gnu::visibility("default")]] ServiceTierCreateFunction ServiceTierCreate;

int ServiceTierInterfaceVersion() {
    return serviceTierInterfaceVersion;
}

portalGatewayServiceTier *ServiceTierCreate() {
    return new Answers;
}
}
