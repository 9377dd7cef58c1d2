#include "Tests/Fakes/Messages.h"

#include "Contract/Message.h"

namespace {

QString wrapped(std::string_view name, const QString &content) {
    const auto tag = QString::fromLatin1(name.data());
    return u'<' + tag + u'>' + content + QStringLiteral("</") + tag + u'>';
}

QString element(std::string_view name, const QString &text) {
    return wrapped(name, text.toHtmlEscaped());
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
    hasDocument_ = false;
    return with(Contract::webSocketResponse, response);
}

Message &Message::withElement(std::string_view name, const Text &text) {
    hasDocument_ = true;
    elements_[name] = text;
    return *this;
}

Message &Message::withEntries(std::vector<std::pair<QString, QString>> entries) {
    hasDocument_ = true;
    entries_ = std::move(entries);
    return *this;
}

QString Message::document() const {
    using namespace Contract::NoticeDocument;
    QString content;
    for (const auto &[name, text] : elements_) {
        if (text)
            content += name == url ? wrapped(url, element(ok, *text)) : element(name, *text);
    }
    QString entries;
    for (const auto &[name, value] : entries_)
        entries += wrapped(entry, element(entryName, name) + element(entryValue, value));
    if (!entries.isEmpty())
        content += wrapped(metadata, entries);
    return wrapped(root, wrapped(notifications, content));
}

Message::operator QVariantMap() const {
    auto values = values_;
    if (hasDocument_)
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
