#include "Tests/Fakes/Messages.h"

namespace {

QString element(const char *name, const std::optional<QString> &text) {
    if (!text)
        return {};
    const auto tag = QString::fromLatin1(name);
    return u'<' + tag + u'>' + text->toHtmlEscaped() + QStringLiteral("</") + tag + u'>';
}

} // namespace

Message &Message::with(const char *key, const QVariant &value) {
    values_.insert(QString::fromLatin1(key), value);
    return *this;
}

Message &Message::without(const char *key) {
    values_.remove(QString::fromLatin1(key));
    return *this;
}

Message &Message::withLanguage(const QString &code) {
    return with("webSocketappLanguageKey", code);
}

Message &Message::withLogo(const QByteArray &bytes) {
    return with("HeaderLogoImage", bytes);
}

Message &Message::withResponse(const QVariant &response) {
    document_.reset();
    return with("webSocketResponse", response);
}

Message::Document &Message::editDocument() {
    if (!document_)
        document_.emplace();
    return *document_;
}

Message &Message::withHead(const QString &head) {
    editDocument().head = head;
    return *this;
}

Message &Message::withModule(const QString &module) {
    editDocument().module = module;
    return *this;
}

Message &Message::withBody(const QString &body) {
    editDocument().body = body;
    return *this;
}

Message &Message::withTimeout(const QString &timeout) {
    editDocument().timeout = timeout;
    return *this;
}

Message &Message::withUrl(const QString &url) {
    editDocument().url = url;
    return *this;
}

Message &Message::withEntries(std::vector<std::pair<QString, QString>> entries) {
    editDocument().entries = std::move(entries);
    return *this;
}

Message &Message::withoutHead() {
    editDocument().head.reset();
    return *this;
}

Message &Message::withoutModule() {
    editDocument().module.reset();
    return *this;
}

Message &Message::withoutBody() {
    editDocument().body.reset();
    return *this;
}

Message &Message::withoutTimeout() {
    editDocument().timeout.reset();
    return *this;
}

QString Message::document() const {
    const auto document = document_.value_or(Document());
    QString entries;
    for (const auto &[name, value] : document.entries)
        entries += QStringLiteral("<md>") + element("name", name) + element("val", value)
            + QStringLiteral("</md>");
    const auto url = element("ok", document.url);
    return QStringLiteral("<zelvik-secure-access><notifications>") + element("module", document.module)
        + element("head", document.head) + element("body", document.body)
        + element("timeout", document.timeout)
        + (entries.isEmpty() ? QString()
                             : QStringLiteral("<metadata>") + entries + QStringLiteral("</metadata>"))
        + (url.isEmpty() ? QString() : QStringLiteral("<url>") + url + QStringLiteral("</url>"))
        + QStringLiteral("</notifications></zelvik-secure-access>");
}

Message::operator QVariantMap() const {
    auto values = values_;
    if (document_)
        values.insert(QStringLiteral("webSocketResponse"), document());
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
    return Message().with("WebSocketReAuthType", true);
}

Message autoDisconnectMessage() {
    return Message()
        .with("AutoDisconnectWebSocketType", true)
        .with("AutoDisconnectVPNStatus", true)
        .with("AutoDisconnectMessageKey", QStringLiteral("Your working day is over."));
}

Message concurrentSessionMessage() {
    return Message()
        .with("WebSocketAdminDisconnect", true)
        .withHead(QStringLiteral("Signed out"))
        .withModule(QStringLiteral("Session Control"))
        .withBody(QStringLiteral("You have signed in on another device."));
}

Message maintenanceMessage() {
    return Message()
        .with("WebSocketType", true)
        .with("MaintenanceMessageKey", QStringLiteral("Back at six."));
}
