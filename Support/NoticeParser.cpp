#include "Support/NoticeParser.h"

#include "Support/Logger.h"
#include "Support/XmlDocument.h"

#include <charconv>

namespace {

// The parser is the body of the window's operation and logs under its name.
constexpr LogSource logSource("Controllers/ViewController");
constexpr auto functionName = "updateNotificationWindow(xmlStr:)";

} // namespace

std::int64_t decimalInteger(const QString &text) {
    const auto bytes = text.toUtf8();
    const char *first = bytes.constData();
    const char *last = first + bytes.size();
    if (first != last && *first == '+') {
        ++first;
        if (first != last && *first == '-')
            return 0;
    }
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(first, last, value);
    return error == std::errc() && end == last ? value : 0;
}

QString noticeTitle(const QString &head, const QString &module) {
    return head + QStringLiteral(" by ") + module;
}

std::optional<SocketPayload> parseNotice(const QString &xmlStr) {
    const auto document = XmlDocument::parse(xmlStr);
    if (!document)
        return std::nullopt;
    logSource.debug(functionName, QStringLiteral("Parsing websocket response: ") + xmlStr);

    const auto text = [&document](const char *name) {
        return document->root().text({ "zelvik-secure-access", "notifications", name });
    };
    SocketPayload payload;
    payload.module = noticeTitle(text("head").value_or(QString()), text("module").value_or(QString()));
    payload.information = text("body").value_or(QString());
    payload.timeout = decimalInteger(text("timeout").value_or(QStringLiteral("10")));

    const auto entries = document->root().all({ "zelvik-secure-access", "notifications", "metadata", "md" });
    payload.titleLabels.reserve(static_cast<qsizetype>(entries.size()));
    payload.details.reserve(static_cast<qsizetype>(entries.size()));
    for (const auto &entry : entries)
        payload.titleLabels.append(entry.text({ "name" }).value_or(QString()));
    for (const auto &entry : entries)
        payload.details.append(entry.text({ "val" }).value_or(QString()));

    payload.activityUrl
        = document->root().text({ "zelvik-secure-access", "notifications", "url", "ok" }).value_or(QString());
    return payload;
}
