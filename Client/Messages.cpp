// The notices as the messages that the agent reads, by the keys and elements that it knows.

#include "Client/NoticeClient.h"

#include <algorithm>
#include <array>

namespace NoticeClient {

namespace {

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
    void element(std::string_view name, std::string_view text) {
        begin(name);
        if (!failure_ && !(isText(text) && isAllowedInDocument(text)))
            failure_ = "the text of " + std::string(name) + " holds what no XML document may";
        content_ += escaped(text);
        end(name);
    }
    void begin(std::string_view name) { (content_ += '<').append(name) += '>'; }
    void end(std::string_view name) { (content_ += "</").append(name) += '>'; }

    Result<std::string> finished() const {
        if (failure_)
            return invalid(*failure_);
        constexpr auto head = R"(<?xml version="1.0" encoding="UTF-8"?>)"
                              "\n<zelvik-secure-access><notifications>";
        return head + content_ + "</notifications></zelvik-secure-access>\n";
    }

private:
    std::string content_;
    std::optional<std::string> failure_;
};

void writeHeading(
    Document &document, const std::string &module, const std::string &head, const std::string &body) {
    document.element("module", module);
    document.element("head", head);
    document.element("body", body);
}

// The texts are looked at when the message is posted, all at one place; here only what asks for it earlier.
Result<Message> messageOf(Dictionary userInfo, const Look &look) {
    if (!look.language.empty())
        setEntry(userInfo, Key::language, { look.language });
    if (look.headerLogo)
        setEntry(userInfo, Key::headerLogo, { *look.headerLogo });
    for (const auto &entry : userInfo) {
        const auto *text = std::get_if<std::string>(&entry.value.content);
        if (text && !isText(*text))
            return invalid("the text of " + entry.key + " is not UTF-8");
    }
    return Message { std::move(userInfo), std::nullopt, {} };
}

} // namespace

void setEntry(Dictionary &dictionary, std::string key, Value value) {
    const auto found = std::find_if(
        dictionary.begin(), dictionary.end(), [&key](const Entry &entry) { return entry.key == key; });
    if (found != dictionary.end())
        found->value = std::move(value);
    else
        dictionary.push_back({ std::move(key), std::move(value) });
}

std::string Brand::messageName() const {
    return logFolderName + "_socketMessageNotifier";
}

std::string Brand::reauthenticationName() const {
    return vendor + "_webSocketToMainAppNotifier";
}

Result<std::string> CasbNotice::document() const {
    if (timeout && *timeout < std::chrono::seconds(1))
        return invalid("a countdown of less than a second would end the notice at once");
    Document result;
    writeHeading(result, module, head, body);
    if (timeout)
        result.element("timeout", std::to_string(timeout->count()));
    // The rows go by their place, so that each of them is there as soon as one is.
    const std::array rows { &activity, &application, &url };
    if (std::any_of(rows.begin(), rows.end(), [](const Row *row) { return !row->value.empty(); })) {
        result.begin("metadata");
        for (const Row *row : rows) {
            result.begin("md");
            result.element("name", row->caption);
            result.element("val", row->value);
            result.end("md");
        }
        result.end("metadata");
    }
    if (!activityUrl.empty()) {
        result.begin("url");
        result.element("ok", activityUrl);
        result.end("url");
    }
    return result.finished();
}

Result<Message> CasbNotice::message() const {
    auto text = document();
    if (!text)
        return text.error();
    return messageOf({ { Key::document, { std::move(*text) } } }, look);
}

Result<Message> ReauthenticationNotice::message() const {
    return messageOf({ { Key::reauthentication, { true } } }, look);
}

Result<Message> AutoDisconnectNotice::message() const {
    return messageOf({ { Key::autoDisconnect, { true } }, { Key::autoDisconnectText, { text } },
                         { Key::vpnStatus, { vpn == Vpn::Connected } } },
        look);
}

Result<std::string> ConcurrentSessionNotice::document() const {
    Document result;
    writeHeading(result, module, head, body);
    return result.finished();
}

Result<Message> ConcurrentSessionNotice::message() const {
    auto text = document();
    if (!text)
        return text.error();
    return messageOf({ { Key::concurrentSession, { true } }, { Key::document, { std::move(*text) } } }, look);
}

Result<Message> MaintenanceNotice::message() const {
    Dictionary userInfo { { Key::maintenance, { true } }, { Key::maintenanceText, { text } } };
    // The agent looks at this notice's logo only when there is a document, whatever that says.
    if (look.headerLogo)
        setEntry(userInfo, Key::document, { std::string() });
    return messageOf(std::move(userInfo), look);
}

} // namespace NoticeClient
