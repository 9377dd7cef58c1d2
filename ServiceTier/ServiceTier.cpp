#include "ServiceTier/HttpRequest.h"
#include "ServiceTier/WebAddress.h"
#include "ServiceTier/portalGatewayServiceTier.h"

#include <atomic>
#include <csignal>
#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <utility>

namespace {

constexpr int mostRequestsAtOnce = 16;

// Of the whole process, since every notice makes a client of its own. It has no destructor, so it outlives
// every thread.
std::atomic<int> requestsInFlight { 0 };

/// A place among the requests in flight; given back when it goes.
class Place {
public:
    Place()
        : taken_(requestsInFlight.fetch_add(1) < mostRequestsAtOnce) { }
    Place(Place &&other) noexcept
        : counted_(std::exchange(other.counted_, false))
        , taken_(other.taken_) { }
    Place(const Place &) = delete;
    Place &operator=(const Place &) = delete;
    Place &operator=(Place &&) = delete;
    ~Place() {
        if (counted_)
            requestsInFlight.fetch_sub(1);
    }

    bool isTaken() const { return taken_; }

private:
    bool counted_ = true;
    bool taken_;
};

void report(const portalGatewayServiceTier::Completion &completion, std::optional<int> status) {
    if (!completion)
        return;
    try {
        completion({ status });
    } catch (...) {
        // A completion must not throw; one that does must not end the process from a thread nobody knows of.
    }
}

// The program's signal handlers expect its own threads.
void blockSignals() {
    sigset_t every;
    sigfillset(&every);
    pthread_sigmask(SIG_BLOCK, &every, nullptr);
}

std::optional<int> statusOf(const std::string &url, const std::string &method) {
    try {
        return HttpRequest::statusOf(url, method);
    } catch (const std::exception &) {
        return std::nullopt; // out of memory
    }
}

/// The shipped gateway client: libcurl, and a detached thread for each request that owns all it needs, so
/// that nothing waits for it, neither this object's end nor the process's.
class CurlServiceTier final : public portalGatewayServiceTier {
public:
    /// Parameters are appended to the URL's query. With too many requests in flight, or when no thread can be
    /// had, the completion is called without a status before this returns.
    void request(const std::string &url, const Parameters *parameters, const std::string &method,
        Completion completion) override {
        Place place;
        if (!place.isTaken()) {
            report(completion, std::nullopt);
            return;
        }
        try {
            auto address = parameters ? WebAddress::withQuery(url, *parameters) : url;
            std::thread([place = std::make_unique<Place>(std::move(place)), address = std::move(address),
                            method, completion]() mutable {
                blockSignals();
                const auto status = statusOf(address, method);
                place.reset(); // before the completion, which may start the next request
                report(completion, status);
            }).detach();
        } catch (const std::exception &) {
            report(completion, std::nullopt);
        }
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
    return new (std::nothrow) CurlServiceTier;
}
}
