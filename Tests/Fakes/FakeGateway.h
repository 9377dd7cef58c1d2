#pragma once

#include "ServiceTier/portalGatewayServiceTier.h"
#include "Tests/Fakes/Journal.h"

/// Gateway clients that only record what they are asked for. A request is answered by the test, by calling
/// its completion. In the journal a request is a line as "request GET https://example.com/".
class FakeGateway {
public:
    struct Request {
        std::string url;
        bool hasParameters;
        std::string method;
        portalGatewayServiceTier::Completion completion;
    };

    /// @param journal  outlives the gateway
    explicit FakeGateway(Journal &journal)
        : journal_(journal) { }

    /// @return null while the plug-in is missing
    std::unique_ptr<portalGatewayServiceTier> makeClient() {
        if (isMissing_)
            return nullptr;
        ++clientsMade_;
        return std::make_unique<Client>(*this);
    }

    void setMissing(bool missing) { isMissing_ = missing; }

    int clientsMade() const { return clientsMade_; }
    const std::vector<Request> &requests() const { return requests_; }

private:
    class Client final : public portalGatewayServiceTier {
    public:
        explicit Client(FakeGateway &gateway)
            : gateway_(gateway) { }

        void request(const std::string &url, const Parameters *parameters, const std::string &method,
            Completion completion) override {
            gateway_.requests_.push_back({ url, parameters != nullptr, method, std::move(completion) });
            gateway_.journal_.add(QString::fromStdString("request " + method + ' ' + url));
        }

    private:
        FakeGateway &gateway_;
    };

    Journal &journal_;
    bool isMissing_ = false;
    int clientsMade_ = 0;
    std::vector<Request> requests_;
};
