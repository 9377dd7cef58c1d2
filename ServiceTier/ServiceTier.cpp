#include "ServiceTier/HttpRequest.h"
#include "ServiceTier/portalGatewayServiceTier.h"

#include <chrono>
#include <csignal>
#include <exception>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int maxWorkers = 32;

// Past `maxWorkers` one more is added for a request that comes this long after the last one was.
constexpr std::chrono::milliseconds extraWorkerInterval(100);

struct Request {
    std::string url;
    portalGatewayServiceTier::Completion completion;
};

void report(const Request &request, std::optional<int> status) {
    if (!request.completion)
        return;
    try {
        request.completion({ status });
    } catch (...) {
        // A completion must not throw; one that does must not end the process from a thread nobody knows of.
    }
}

std::optional<int> statusOf(const std::string &url) {
    try {
        return HttpRequest::statusOf(url);
    } catch (const std::exception &) {
        return std::nullopt; // out of memory
    }
}

// The program's signal handlers expect its own threads.
void blockSignals() {
    sigset_t every;
    sigfillset(&every);
    pthread_sigmask(SIG_BLOCK, &every, nullptr);
}

/// The requests of the whole process, since every notice makes a client of its own. The latest goes first:
/// when the user presses OK the process ends a second later. It is started even when `maxWorkers` requests
/// hang; `HttpRequest::wholeTime` bounds the workers that are added for such requests.
class Queue {
public:
    void add(Request request) {
        std::unique_lock lock(mutex_);
        if (!addWorker() && workers_ == 0) {
            lock.unlock();
            return report(request, std::nullopt);
        }
        waiting_.push_back(std::move(request));
    }

private:
    /// @return false when there are enough, or no thread is to be had
    bool addWorker() {
        const auto now = Clock::now();
        if (workers_ >= maxWorkers && now - latestWorker_ < extraWorkerInterval)
            return false;
        try {
            // Detached: nothing waits for it, neither a client's end nor the process's.
            std::thread([this] { work(); }).detach();
        } catch (const std::exception &) {
            return false;
        }
        ++workers_;
        latestWorker_ = now;
        return true;
    }

    void work() {
        blockSignals();
        while (const auto request = next())
            report(*request, statusOf(request->url));
    }

    std::optional<Request> next() {
        const std::lock_guard lock(mutex_);
        if (waiting_.empty()) {
            --workers_;
            return std::nullopt;
        }
        auto request = std::move(waiting_.back());
        waiting_.pop_back();
        return request;
    }

    std::mutex mutex_;
    std::vector<Request> waiting_;
    int workers_ = 0;
    Clock::time_point latestWorker_;
};

Queue &queue() {
    static auto *const only = new Queue; // outlives every worker
    return *only;
}

/// The shipped gateway client: libcurl, and workers on threads of their own.
class CurlServiceTier final : public portalGatewayServiceTier {
public:
    /// GET without parameters alone; to anything else the completion is called without a status.
    void request(const std::string &url, const Parameters *parameters, const std::string &method,
        Completion completion) override {
        Request request { url, std::move(completion) };
        if (parameters || method != "GET")
            return report(request, std::nullopt);
        queue().add(std::move(request));
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
