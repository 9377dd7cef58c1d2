#include "Support/NoticeParser.h"

#include "Contract/NoticeDocument.h"
#include "Formats/XmlDocument.h"
#include "Support/Logger.h"

#include <charconv>

namespace Document = Contract::NoticeDocument;

namespace {

// The parser is the body of the window's operation and logs under its name.
constexpr LogSource logSource("Controllers/ViewController");
constexpr auto functionName = "updateNotificationWindow(xmlStr:)";

std::optional<Formats::XmlDocument> documentFrom(const QString &xmlStr) {
    const auto bytes = xmlStr.toUtf8();
    return Formats::XmlDocument::parse({ bytes.constData(), static_cast<std::size_t>(bytes.size()) });
}

QString text(const Formats::XmlDocument::Element &element, Formats::XmlDocument::Path path) {
    return QString::fromStdString(element.text(path).value_or(std::string()));
}

QString title(const Formats::XmlDocument &document) {
    const auto head = text(document.root(), { Document::root, Document::notifications, Document::head });
    const auto module = text(document.root(), { Document::root, Document::notifications, Document::module });
    return head + QStringLiteral(" by ") + module;
}

QString body(const Formats::XmlDocument &document) {
    return text(document.root(), { Document::root, Document::notifications, Document::body });
}

/// One sign at most and digits, no blanks. Anything else, and what is past the range, is 0.
std::int64_t decimalInteger(std::string_view digits) {
    if (digits.starts_with('+')) {
        digits.remove_prefix(1);
        if (digits.starts_with('-'))
            return 0;
    }
    std::int64_t value = 0;
    const auto *end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, value);
    return error == std::errc() && stop == end ? value : 0;
}

} // namespace

bool isXml(const QString &text) {
    return documentFrom(text).has_value();
}

std::optional<SocketPayload> parseNotice(const QString &xmlStr) {
    const auto document = documentFrom(xmlStr);
    if (!document)
        return std::nullopt;
    logSource.debug(functionName, QStringLiteral("Parsing websocket response: ") + xmlStr);

    const auto root = document->root();
    SocketPayload payload;
    payload.module = title(*document);
    payload.information = body(*document);
    // An element without text is as good as missing; an empty CDATA section is an empty text, and no integer.
    payload.timeout = decimalInteger(
        root.text({ Document::root, Document::notifications, Document::timeout }).value_or("10"));
    const auto entries
        = root.all({ Document::root, Document::notifications, Document::metadata, Document::entry });
    payload.titleLabels.reserve(static_cast<qsizetype>(entries.size()));
    payload.details.reserve(static_cast<qsizetype>(entries.size()));
    for (const auto &entry : entries)
        payload.titleLabels.append(text(entry, { Document::entryName }));
    for (const auto &entry : entries)
        payload.details.append(text(entry, { Document::entryValue }));
    payload.activityUrl
        = text(root, { Document::root, Document::notifications, Document::url, Document::ok });
    return payload;
}

SessionNotice parseSessionNotice(const QString &xmlStr) {
    const auto document = documentFrom(xmlStr);
    if (!document)
        return { QStringLiteral(" by "), {} };
    return { title(*document), body(*document) };
}
