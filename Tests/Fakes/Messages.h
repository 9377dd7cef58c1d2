#pragma once

#include "Contract/NoticeDocument.h"

#include <QVariantMap>

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// The user info of a message, put together step by step:
///
///     const QVariantMap message = casbMessage().withTimeout("7").withLanguage("de");
class Message {
public:
    using Text = std::optional<QString>;

    Message &with(std::string_view key, const QVariant &value);
    Message &without(std::string_view key);
    Message &withLanguage(const QString &code);
    Message &withLogo(const QByteArray &bytes);

    /// "webSocketResponse" as it is, instead of the document that the following steps make.
    Message &withResponse(const QVariant &response);

    // The document of the notice. What is not given, or nothing, has no element in it.
    Message &withHead(const Text &text) { return withElement(Contract::NoticeDocument::head, text); }
    Message &withModule(const Text &text) { return withElement(Contract::NoticeDocument::module, text); }
    Message &withBody(const Text &text) { return withElement(Contract::NoticeDocument::body, text); }
    Message &withTimeout(const Text &text) { return withElement(Contract::NoticeDocument::timeout, text); }
    Message &withUrl(const Text &text) { return withElement(Contract::NoticeDocument::url, text); }
    Message &withEntries(std::vector<std::pair<QString, QString>> entries);

    /// The document's text.
    QString document() const;

    operator QVariantMap() const;

private:
    Message &withElement(std::string_view name, const Text &text);

    QVariantMap values_;
    bool hasDocument_ = false;
    std::map<std::string_view, Text> elements_;
    std::vector<std::pair<QString, QString>> entries_;
};

/// No key at all.
Message emptyMessage();

/// An upload to an application, with its three rows, 10 seconds and a URL to call.
Message casbMessage();
Message reAuthMessage();
/// The VPN is still connected.
Message autoDisconnectMessage();
Message concurrentSessionMessage();
Message maintenanceMessage();

/// The one of these that shows the notice of the controller of that class.
Message messageFor(const std::string &controller);
