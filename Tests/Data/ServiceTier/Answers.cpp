// A gateway client that answers every request with 204, before request() returns and with no network; the
// method THROW throws.
#include "ServiceTier/portalGatewayServiceTier.h"

#include <stdexcept>

namespace {

class Answers final : public portalGatewayServiceTier {
public:
    void request(
        const std::string &, const Parameters *, const std::string &method, Completion completion) override {
        if (method == "THROW")
            throw std::runtime_error("no such method");
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
