#include "Client/NoticeClient.h"

#include "Support/NoticeParser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace {

using namespace NoticeClient;
using namespace std::chrono_literals;

CasbNotice casb() {
    CasbNotice notice;
    notice.head = "Upload blocked";
    notice.module = "Cloud Access Policy";
    notice.body = "The file was not sent.";
    notice.activity.value = "Upload";
    notice.application.value = "Example Drive";
    notice.url.value = "https://drive.example.com/";
    notice.timeout = 20s;
    notice.activityUrl = "https://gateway.example.com/closed?id=1&ok=1";
    return notice;
}

/// The message's document as the agent reads it.
SocketPayload read(const Result<Message> &message) {
    if (!message) {
        ADD_FAILURE() << message.error().message;
        return {};
    }
    const auto document = std::get<std::string>(message->at("webSocketResponse"));
    const auto payload = parseNotice(QString::fromStdString(document));
    EXPECT_TRUE(payload.has_value()) << document;
    return payload.value_or(SocketPayload());
}

/// A message's entries, each as KEY=VALUE.
std::vector<std::string> entries(const Result<Message> &message) {
    if (!message)
        return { message.error().message };
    struct Shown {
        std::string operator()(bool value) const { return value ? "true" : "false"; }
        std::string operator()(const std::string &value) const { return value; }
        std::string operator()(const Data &value) const { return "data:" + value.bytes; }
    };
    std::vector<std::string> result;
    for (const auto &[key, value] : *message)
        result.push_back(key + "=" + std::visit(Shown(), value));
    return result;
}

template <class Value>
void expectInvalid(const Result<Value> &result, const char *word) {
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error().code, ErrorCode::InvalidArgument);
    EXPECT_THAT(result.error().message, testing::HasSubstr(word));
}

TEST(NoticeClientMessages, CasbDocumentIsReadAsItWasWritten) {
    const auto payload = read(casb().message());
    EXPECT_EQ(payload.module, QStringLiteral("Upload blocked by Cloud Access Policy"));
    EXPECT_EQ(payload.information, QStringLiteral("The file was not sent."));
    EXPECT_EQ(payload.timeout, 20);
    EXPECT_EQ(payload.titleLabels,
        QStringList({ QStringLiteral("Activity"), QStringLiteral("Application"), QStringLiteral("URL") }));
    EXPECT_EQ(payload.details,
        QStringList({ QStringLiteral("Upload"), QStringLiteral("Example Drive"),
            QStringLiteral("https://drive.example.com/") }));
    EXPECT_EQ(payload.activityUrl, QStringLiteral("https://gateway.example.com/closed?id=1&ok=1"));
}

TEST(NoticeClientMessages, AnyTextThatADocumentMayHoldArrivesUnchanged) {
    const std::string nasty
        = " <b>&amp;</b> ]]> <!-- \" ' %s\t\n\r\n\r \xC2\x85 \xE2\x80\xA8 \xF0\x9F\x98\x80 ";
    auto notice = casb();
    notice.body = nasty;
    notice.activity = { nasty, nasty };
    notice.activityUrl = nasty;
    const auto payload = read(notice.message());
    const auto expected = QString::fromStdString(nasty);
    EXPECT_EQ(payload.information, expected);
    EXPECT_EQ(payload.titleLabels.value(0), expected);
    EXPECT_EQ(payload.details.value(0), expected);
    EXPECT_EQ(payload.activityUrl, expected);
}

TEST(NoticeClientMessages, TextsThatNoDocumentMayHoldAreRefusedByElement) {
    const std::vector<std::string> rows { std::string("a\0b", 3), "\x01", "\x1F", "\x0B", "\xEF\xBF\xBE",
        "\xEF\xBF\xBF", "\xFF", "\xED\xA0\x80", "\xC3" };
    for (const auto &text : rows) {
        SCOPED_TRACE(testing::PrintToString(text));
        auto notice = casb();
        notice.head = text;
        expectInvalid(notice.message(), "text of head");
        expectInvalid(notice.message(), "text of head");
        notice = casb();
        notice.url.value = text;
        expectInvalid(notice.message(), "text of val");
        ConcurrentSessionNotice concurrent;
        concurrent.body = text;
        expectInvalid(concurrent.message(), "text of body");
    }
}

TEST(NoticeClientMessages, RowsKeepTheirPlaceWhenOneIsLeftOut) {
    auto notice = casb();
    notice.application.value.clear();
    EXPECT_EQ(read(notice.message()).details,
        QStringList({ QStringLiteral("Upload"), QString(), QStringLiteral("https://drive.example.com/") }));
    notice.activity.value.clear();
    notice.url.value.clear();
    EXPECT_EQ(read(notice.message()).details, QStringList());
}

TEST(NoticeClientMessages, TimeoutIsTheAgentsOwnWhenLeftOutAndAtLeastASecond) {
    auto notice = casb();
    notice.timeout.reset();
    EXPECT_EQ(read(notice.message()).timeout, 10);
    notice.timeout = 1s;
    EXPECT_EQ(read(notice.message()).timeout, 1);
    notice.timeout = std::chrono::seconds::max();
    EXPECT_EQ(read(notice.message()).timeout, std::numeric_limits<std::int64_t>::max());
    for (const auto timeout : { 0s, -1s }) {
        notice.timeout = timeout;
        expectInvalid(notice.message(), "countdown");
    }
}

TEST(NoticeClientMessages, EachNoticeHasItsKeys) {
    EXPECT_THAT(
        entries(ReauthenticationNotice().message()), testing::ElementsAre("WebSocketReAuthType=true"));
    AutoDisconnectNotice autoDisconnect;
    autoDisconnect.text = "Policy";
    EXPECT_THAT(entries(autoDisconnect.message()),
        testing::ElementsAre("AutoDisconnectMessageKey=Policy", "AutoDisconnectVPNStatus=false",
            "AutoDisconnectWebSocketType=true"));
    autoDisconnect.vpn = Vpn::Connected;
    EXPECT_THAT(entries(autoDisconnect.message()), testing::Contains("AutoDisconnectVPNStatus=true"));
    MaintenanceNotice maintenance;
    maintenance.text = "Back at 18:00.";
    EXPECT_THAT(entries(maintenance.message()),
        testing::ElementsAre("MaintenanceMessageKey=Back at 18:00.", "WebSocketType=true"));
    ConcurrentSessionNotice concurrent;
    concurrent.head = "Signed out";
    concurrent.module = "Example";
    EXPECT_THAT(entries(concurrent.message()),
        testing::ElementsAre(
            "WebSocketAdminDisconnect=true", testing::StartsWith("webSocketResponse=<?xml ")));
    EXPECT_EQ(read(concurrent.message()).module, QStringLiteral("Signed out by Example"));
}

TEST(NoticeClientMessages, LanguageAndLogoGoWithEveryNotice) {
    const Look look { "de", Data { std::string("\x89PNG\0", 5) } };
    const auto withLook = [&look](auto notice) {
        notice.look = look;
        return entries(notice.message());
    };
    for (const auto &found :
        { withLook(casb()), withLook(ReauthenticationNotice()), withLook(AutoDisconnectNotice()),
            withLook(ConcurrentSessionNotice()), withLook(MaintenanceNotice()) }) {
        EXPECT_THAT(found, testing::Contains("webSocketappLanguageKey=de"));
        EXPECT_THAT(found, testing::Contains("HeaderLogoImage=data:" + std::string("\x89PNG\0", 5)));
    }
}

// Without a document the agent does not look at this notice's logo.
TEST(NoticeClientMessages, MaintenanceLogoBringsADocumentAlong) {
    MaintenanceNotice notice;
    EXPECT_THAT(entries(notice.message()), testing::Not(testing::Contains("webSocketResponse=")));
    notice.look.headerLogo = Data { "logo" };
    EXPECT_THAT(entries(notice.message()), testing::Contains("webSocketResponse="));
}

TEST(NoticeClientMessages, TextThatIsNoneIsRefusedByKey) {
    MaintenanceNotice maintenance;
    maintenance.text = "\xFF";
    expectInvalid(maintenance.message(), "MaintenanceMessageKey");
    ReauthenticationNotice reauthentication;
    reauthentication.look.language = std::string("d\0e", 3);
    expectInvalid(reauthentication.message(), "webSocketappLanguageKey");
}

} // namespace
