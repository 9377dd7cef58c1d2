#include "Tests/Fakes/Messages.h"

#include "Contract/Message.h"
#include "Contract/NoticeDocument.h"

namespace {

QString wrapped(std::string_view name, const QString &content) {
    const auto tag = QString::fromLatin1(name.data());
    return u'<' + tag + u'>' + content + QStringLiteral("</") + tag + u'>';
}

QString element(std::string_view name, const std::optional<QString> &text) {
    return text ? wrapped(name, text->toHtmlEscaped()) : QString();
}

} // namespace

Message &Message::with(std::string_view key, const QVariant &value) {
    values_.insert(QString::fromLatin1(key.data()), value);
    return *this;
}

Message &Message::without(std::string_view key) {
    values_.remove(QString::fromLatin1(key.data()));
    return *this;
}

Message &Message::withLanguage(const QString &code) {
    return with(Contract::webSocketappLanguageKey, code);
}

Message &Message::withLogo(const QByteArray &bytes) {
    return with(Contract::HeaderLogoImage, bytes);
}

Message &Message::withResponse(const QVariant &response) {
    document_.reset();
    return with(Contract::webSocketResponse, response);
}

Message::Document &Message::editDocument() {
    if (!document_)
        document_.emplace();
    return *document_;
}

Message &Message::withHead(std::optional<QString> head) {
    editDocument().head = std::move(head);
    return *this;
}

Message &Message::withModule(std::optional<QString> module) {
    editDocument().module = std::move(module);
    return *this;
}

Message &Message::withBody(std::optional<QString> body) {
    editDocument().body = std::move(body);
    return *this;
}

Message &Message::withTimeout(std::optional<QString> timeout) {
    editDocument().timeout = std::move(timeout);
    return *this;
}

Message &Message::withUrl(std::optional<QString> url) {
    editDocument().url = std::move(url);
    return *this;
}

Message &Message::withEntries(std::vector<std::pair<QString, QString>> entries) {
    editDocument().entries = std::move(entries);
    return *this;
}

QString Message::document() const {
    using namespace Contract::NoticeDocument;
    const auto document = document_.value_or(Document());
    QString entries;
    for (const auto &[name, value] : document.entries)
        entries += wrapped(entry, element(entryName, name) + element(entryValue, value));
    const auto content = element(module, document.module) + element(head, document.head)
        + element(body, document.body) + element(timeout, document.timeout)
        + (entries.isEmpty() ? QString() : wrapped(metadata, entries))
        + (document.url ? wrapped(url, element(ok, document.url)) : QString());
    return wrapped(root, wrapped(notifications, content));
}

Message::operator QVariantMap() const {
    auto values = values_;
    if (document_)
        values.insert(QString::fromLatin1(Contract::webSocketResponse.data()), document());
    return values;
}

Message emptyMessage() {
    return {};
}

Message casbMessage() {
    return Message()
        .withHead(QStringLiteral("Upload blocked"))
        .withModule(QStringLiteral("Cloud Guard"))
        .withBody(QStringLiteral("This file may not leave the company."))
        .withTimeout(QStringLiteral("10"))
        .withEntries({ { QStringLiteral("What"), QStringLiteral("Upload") },
            { QStringLiteral("Where"), QStringLiteral("Filebox") },
            { QStringLiteral("Address"), QStringLiteral("https://filebox.example/up") } })
        .withUrl(QStringLiteral("https://gateway.example/closed?id=1"));
}

Message reAuthMessage() {
    return Message().with(Contract::WebSocketReAuthType, true);
}

Message autoDisconnectMessage() {
    return Message()
        .with(Contract::AutoDisconnectWebSocketType, true)
        .with(Contract::AutoDisconnectVPNStatus, true)
        .with(Contract::AutoDisconnectMessageKey, QStringLiteral("Your working day is over."));
}

Message concurrentSessionMessage() {
    return Message()
        .with(Contract::WebSocketAdminDisconnect, true)
        .withHead(QStringLiteral("Signed out"))
        .withModule(QStringLiteral("Session Control"))
        .withBody(QStringLiteral("You have signed in on another device."));
}

Message maintenanceMessage() {
    return Message()
        .with(Contract::WebSocketType, true)
        .with(Contract::MaintenanceMessageKey, QStringLiteral("Back at six."));
}

Message messageFor(const std::string &controller) {
    if (controller == "MaintenanceModeVC")
        return maintenanceMessage();
    if (controller == "AutoDisconnectHandlerVC")
        return autoDisconnectMessage();
    if (controller == "ReAuthHandlerVC")
        return reAuthMessage();
    return controller == "ConcurrentSessionVC" ? concurrentSessionMessage() : casbMessage();
}
