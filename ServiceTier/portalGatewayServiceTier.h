#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

/// What a request came back with.
struct ServiceTierResponse {
    /// The HTTP status code; nothing when there was no HTTP response at all (no connection, time-out,
    /// a refused URL).
    std::optional<int> httpStatusCode;
};

/// The gateway client: one request operation.
///
/// It is the interface of the plug-in `libServiceTier`, which stands in the bundle's Frameworks folder and
/// is loaded at the first request. A site that has its own gateway client builds a library of that name with
/// the two functions at the end of this file and puts it there.
class portalGatewayServiceTier {
public:
    using Parameters = std::map<std::string, std::string>;
    using Completion = std::function<void(const ServiceTierResponse &)>;

    virtual ~portalGatewayServiceTier() = default;

    /// Starts a request and returns at once; nothing is waited for, also not at the end of the process.
    /// What it throws counts as a response without a status.
    ///
    /// @param url         sent unchanged, byte for byte; a text that is no http or https URL (the empty text
    ///                    too) gives a response without a status
    /// @param parameters  null: no request has any
    /// @param method      "GET": no request has another
    /// @param completion  called once, on any thread, also after this object is gone; it must not throw
    virtual void request(const std::string &url, const Parameters *parameters, const std::string &method,
        Completion completion)
        = 0;
};

/// Grows whenever the class above changes. A plug-in of another version is not used.
inline constexpr int serviceTierInterfaceVersion = 1;

extern "C" {
/// Exported by the plug-in as `ServiceTierInterfaceVersion`: the version it was built with.
using ServiceTierInterfaceVersionFunction = int();
/// Exported by the plug-in as `ServiceTierCreate`: a new client, owned by the caller, freed with `delete`.
using ServiceTierCreateFunction = portalGatewayServiceTier *();
}
