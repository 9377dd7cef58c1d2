#pragma once

#include <QVariantMap>

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
    Message &with(std::string_view key, const QVariant &value);
    Message &without(std::string_view key);
    Message &withLanguage(const QString &code);
    Message &withLogo(const QByteArray &bytes);

    /// "webSocketResponse" as it is, instead of the document that the following steps make.
    Message &withResponse(const QVariant &response);

    // The document of the notice. What is not given, or nothing, has no element in it.
    Message &withHead(std::optional<QString> head);
    Message &withModule(std::optional<QString> module);
    Message &withBody(std::optional<QString> body);
    Message &withTimeout(std::optional<QString> timeout);
    Message &withUrl(std::optional<QString> url);
    Message &withEntries(std::vector<std::pair<QString, QString>> entries);

    /// The document's text.
    QString document() const;

    operator QVariantMap() const;

private:
    struct Document {
        std::optional<QString> head;
        std::optional<QString> module;
        std::optional<QString> body;
        std::optional<QString> timeout;
        std::optional<QString> url;
        std::vector<std::pair<QString, QString>> entries;
    };
    Document &editDocument();

    QVariantMap values_;
    std::optional<Document> document_;
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
