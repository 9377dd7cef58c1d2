// The notices as the messages that the agent reads, by the keys and elements that it knows.

#include "Client/NoticeClient.h"

#include "Contract/Bus.h"
#include "Contract/Message.h"
#include "Contract/NoticeDocument.h"

#include <algorithm>
#include <array>

namespace NoticeClient {

namespace {

namespace Element = Contract::NoticeDocument;

Error invalid(std::string message) {
    return { ErrorCode::InvalidArgument, std::move(message) };
}

// A line end of the other kind would become a line feed, and a tab or a line feed stays itself, in an
// element's text.
std::string escaped(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (const char letter : text) {
        switch (letter) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>': // for the sake of "]]>"
            result += "&gt;";
            break;
        case '\r':
            result += "&#13;";
            break;
        default:
            result += letter;
        }
    }
    return result;
}

// Of valid UTF-8: whether an XML document may hold every character of it.
bool isAllowedInDocument(std::string_view text) {
    const auto isForbidden = [](char letter) {
        const auto byte = static_cast<unsigned char>(letter);
        return byte < 0x20 && letter != '\t' && letter != '\n' && letter != '\r';
    };
    return std::none_of(text.begin(), text.end(), isForbidden)
        && text.find("\xEF\xBF\xBE") == std::string_view::npos
        && text.find("\xEF\xBF\xBF") == std::string_view::npos;
}

/// Writes a notice document from top to bottom; the first text that cannot stand in one is its failure.
class Document {
public:
    Document() {
        begin(Element::root);
        begin(Element::notifications);
    }
    void element(std::string_view name, std::string_view text) {
        begin(name);
        if (!failure_ && !(isText(text) && isAllowedInDocument(text)))
            failure_ = "the text of " + std::string(name) + " holds what no XML document may";
        content_ += escaped(text);
        end(name);
    }
    void begin(std::string_view name) { (content_ += '<').append(name) += '>'; }
    void end(std::string_view name) { (content_ += "</").append(name) += '>'; }

    Result<std::string> finished() && {
        if (failure_)
            return invalid(*failure_);
        end(Element::notifications);
        end(Element::root);
        return std::move(content_) + '\n';
    }

private:
    std::string content_ = R"(<?xml version="1.0" encoding="UTF-8"?>)"
                           "\n";
    std::optional<std::string> failure_;
};

void writeHeading(
    Document &document, const std::string &module, const std::string &head, const std::string &body) {
    document.element(Element::module, module);
    document.element(Element::head, head);
    document.element(Element::body, body);
}

using Entries = std::initializer_list<std::pair<std::string_view, Value>>;

// A text that is none is refused here already, where the caller sees which one it was.
Result<Message> messageOf(Entries entries, const Look &look) {
    Message message(entries.begin(), entries.end());
    if (!look.language.empty())
        message.emplace(Contract::webSocketappLanguageKey, look.language);
    if (look.headerLogo)
        message.emplace(Contract::HeaderLogoImage, *look.headerLogo);
    for (const auto &[key, value] : message) {
        const auto *text = std::get_if<std::string>(&value);
        if (text && !isText(*text))
            return invalid("the text of " + key + " is not UTF-8");
    }
    return message;
}

} // namespace

std::string Brand::messageName() const {
    return Contract::messageName(logFolderName);
}

std::string Brand::reauthenticationName() const {
    return Contract::mainAppNotifierName(vendor);
}

Result<Message> CasbNotice::message() const {
    if (timeout && *timeout < std::chrono::seconds(1))
        return invalid("a countdown of less than a second would end the notice at once");
    Document document;
    writeHeading(document, module, head, body);
    if (timeout)
        document.element(Element::timeout, std::to_string(timeout->count()));

    // The rows go by their place, so that each of them is there as soon as one is.
    const std::array rows { &activity, &application, &url };
    if (std::any_of(rows.begin(), rows.end(), [](const Row *row) { return !row->value.empty(); })) {
        document.begin(Element::metadata);
        for (const Row *row : rows) {
            document.begin(Element::entry);
            document.element(Element::entryName, row->caption);
            document.element(Element::entryValue, row->value);
            document.end(Element::entry);
        }
        document.end(Element::metadata);
    }
    if (!activityUrl.empty()) {
        document.begin(Element::url);
        document.element(Element::ok, activityUrl);
        document.end(Element::url);
    }
    const auto text = std::move(document).finished();
    if (!text)
        return text.error();
    return messageOf({ { Contract::webSocketResponse, *text } }, look);
}

Result<Message> ReauthenticationNotice::message() const {
    return messageOf({ { Contract::WebSocketReAuthType, true } }, look);
}

Result<Message> AutoDisconnectNotice::message() const {
    return messageOf(
        { { Contract::AutoDisconnectWebSocketType, true }, { Contract::AutoDisconnectMessageKey, text },
            { Contract::AutoDisconnectVPNStatus, vpn == Vpn::Connected } },
        look);
}

Result<Message> ConcurrentSessionNotice::message() const {
    Document document;
    writeHeading(document, module, head, body);
    const auto text = std::move(document).finished();
    if (!text)
        return text.error();
    return messageOf(
        { { Contract::WebSocketAdminDisconnect, true }, { Contract::webSocketResponse, *text } }, look);
}

Result<Message> MaintenanceNotice::message() const {
    auto result
        = messageOf({ { Contract::WebSocketType, true }, { Contract::MaintenanceMessageKey, text } }, look);
    // The agent looks at this notice's logo only when there is a document, whatever that says.
    if (result && look.headerLogo)
        result->emplace(Contract::webSocketResponse, std::string());
    return result;
}

} // namespace NoticeClient
