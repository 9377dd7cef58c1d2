#include "Support/CustomAPPManager.h"
#include "Tests/Controllers/NoticeTest.h"

// A second message while a notice is shown, with and without countdowns that still run.

namespace {

// By the class of its controller.
using Kind = std::string;
const Kind Maintenance = "MaintenanceModeVC";
const Kind AutoDisconnect = "AutoDisconnectHandlerVC";
const Kind ReAuth = "ReAuthHandlerVC";
const Kind ConcurrentSession = "ConcurrentSessionVC";
const Kind Casb = "ViewController";

Message messageOf(const Kind &kind, const char *seconds, const char *url, const char *language) {
    auto message = messageFor(kind);
    if (kind == Casb)
        message.withTimeout(QString::fromLatin1(seconds)).withUrl(QString::fromLatin1(url));
    return message.withLanguage(QString::fromLatin1(language));
}

Message firstMessage(const Kind &kind) {
    return messageOf(kind, "20", "first", "de").with("only in the first", 1);
}

Message secondMessage(const Kind &kind) {
    return messageOf(kind, "12", "second", "fr");
}

constexpr auto secondComesAt = 3500ms;

enum class Ender { First, Second, TimeOut };

struct Row {
    Kind first;
    Kind second;
    std::vector<std::string>
        events; ///< after the second message was handled: what happens when, up to the end
    Ender ender;
};

// The first message comes at the launch. A replaced notice takes no part in the window any more, but its
// countdown, request, signal and end go on as if nothing had happened.
std::vector<Row> rows() {
    const std::vector<std::string> timeOut { "120000 terminate" };
    const std::vector<std::string> secondAutoDisconnect { "33500 invisible", "34500 terminate" };
    const std::vector<std::string> secondReAuth { "33500 invisible", "34500 signal", "35500 terminate" };
    const std::vector<std::string> secondCasb { "10500 request second", "15500 invisible",
        "16500 terminate" };
    const std::vector<std::string> firstAutoDisconnect { "31000 terminate" };
    const std::vector<std::string> firstReAuth { "31000 signal", "32000 terminate" };
    const std::vector<std::string> firstCasb { "15000 request first", "21000 terminate" };
    return {
        { Maintenance, Maintenance, timeOut, Ender::TimeOut },
        { Maintenance, AutoDisconnect, secondAutoDisconnect, Ender::Second },
        { Maintenance, ReAuth, secondReAuth, Ender::Second },
        { Maintenance, ConcurrentSession, timeOut, Ender::TimeOut },
        { Maintenance, Casb, secondCasb, Ender::Second },
        { ConcurrentSession, Maintenance, timeOut, Ender::TimeOut },
        { AutoDisconnect, Maintenance, firstAutoDisconnect, Ender::First },
        { AutoDisconnect, Casb, secondCasb, Ender::Second },
        { ReAuth, AutoDisconnect, firstReAuth, Ender::First },
        { Casb, ReAuth, firstCasb, Ender::First },
        // Both count: the later notice ends the process first, and the earlier one still calls its URL.
        { Casb, Casb, { "10500 request second", "15000 request first", "15500 invisible", "16500 terminate" },
            Ender::Second },
    };
}

bool countsDown(const Kind &kind) {
    return kind == AutoDisconnect || kind == ReAuth || kind == Casb;
}

class SecondMessageTest : public NoticeTest {
protected:
    void SetUp() override {
        world.files.addStrings(QStringLiteral("de"), { { "Attention", "German" } });
        world.files.addStrings(QStringLiteral("fr"), { { "Attention", "French" } });
        world.launch();
    }

    /// Moves the clock to the end, and says what happens outside the notices, with the moments.
    std::vector<std::string> eventsToTheEnd() {
        std::vector<std::string> events;
        const auto note = [&](const std::string &event) {
            events.push_back(std::to_string(world.runLoop.elapsed().count()) + ' ' + event);
        };
        world.journal.whenever(QStringLiteral("window alpha 0.0"), [note] { note("invisible"); });
        world.journal.whenever(QStringLiteral("window alpha 1.0"), [note] { note("visible"); });
        world.journal.whenever(QStringLiteral("window level"), [note] { note("level"); });
        world.journal.whenever(QStringLiteral("window content"), [note] { note("content"); });
        world.journal.whenever(QStringLiteral("post "), [note] { note("signal"); });
        world.journal.whenever(QStringLiteral("request GET "),
            [&, note] { note("request " + world.gateway.requests().back().url); });
        world.journal.whenever(QStringLiteral("terminate"), [note] { note("terminate"); });
        while (world.application.terminations().empty())
            world.runLoop.advance(1ms);
        return events;
    }
};

class SecondMessageTable : public SecondMessageTest, public testing::WithParamInterface<std::size_t> { };

} // namespace

TEST_P(SecondMessageTable, ReplacesTheNoticeAtOnceAndLeavesTheRunningCountdownAlone) {
    const auto row = rows()[GetParam()];
    world.receive(firstMessage(row.first));
    EXPECT_EQ(world.window.content(), row.first);
    std::weak_ptr<NoticeController> first = world.window.contentViewController();
    world.runLoop.advance(secondComesAt);
    world.journal.clear();
    const QVariantMap second = secondMessage(row.second);
    world.receive(second);

    // The window, the payload and the language are the second message's.
    EXPECT_EQ(lines("window content "), std::vector { "window content " + row.second });
    EXPECT_EQ(world.window.content(), row.second);
    EXPECT_NE(world.window.contentViewController(), first.lock());
    EXPECT_EQ(world.window.contentViewController()->window(), &world.window);
    EXPECT_EQ(world.window.alphaValue(), 1.0);
    EXPECT_EQ(lines("window level ").back(), "window level 3");
    EXPECT_EQ(CustomAPPManager::payload, second);
    EXPECT_EQ(world.mainBundle.localizedStringForKey(QStringLiteral("Attention"), {}, {}), "French");

    // The first one lives on exactly when it counts down, and is in no window.
    ASSERT_EQ(!first.expired(), countsDown(row.first));
    if (const auto alive = first.lock()) {
        EXPECT_EQ(alive->window(), nullptr);
    }

    const Responder *secondSender = world.window.contentViewController().get();
    EXPECT_EQ(eventsToTheEnd(), row.events);
    ASSERT_EQ(world.application.terminations().size(), 1U);
    const auto *sender = world.application.terminations()[0].sender;
    switch (row.ender) {
    case Ender::First:
        // Nobody else holds it: not after its last tick, but while it ends the application.
        EXPECT_NE(sender, secondSender);
        EXPECT_EQ(lines("terminate by "), std::vector { "terminate by " + row.first });
        break;
    case Ender::Second:
        EXPECT_EQ(sender, secondSender);
        break;
    case Ender::TimeOut:
        EXPECT_EQ(sender, &world.delegate);
        break;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Pairs, SecondMessageTable, testing::Range(std::size_t(0), rows().size()), [](const auto &parameter) {
        const auto row = rows()[parameter.param];
        return row.second + "Over" + row.first;
    });

TEST_F(SecondMessageTest, TheEndThatOkAskedForComesAlsoWhenTheNoticeIsReplacedMeanwhile) {
    const std::pair<Kind, const char *> rows[] { { AutoDisconnect, "okayAction" }, { ReAuth, "okayAction" },
        { Casb, "okButton" } };
    for (const auto &[kind, button] : rows) {
        NoticeWorld each;
        each.launch();
        each.receive(firstMessage(kind));
        each.runLoop.advance(2500ms);
        each.window.contentViewController()
            ->view()
            ->findChild<PushButton *>(QString::fromLatin1(button))
            ->click();
        EXPECT_EQ(each.window.alphaValue(), 0.0);
        each.runLoop.advance(500ms);
        each.receive(maintenanceMessage());
        EXPECT_EQ(each.window.alphaValue(), 1.0); // the second notice is shown for what is left
        each.runLoop.advance(500ms - 1ms);
        EXPECT_THAT(each.application.terminations(), IsEmpty());
        each.runLoop.advance(1ms);
        EXPECT_THAT(each.journal.linesBeginningWith("terminate by "), ElementsAre("terminate by " + kind));
    }
}

TEST_F(SecondMessageTest, PostedTogetherTheLastOneIsShownAndAllCountDown) {
    // The second message is handled before the first notice is filled.
    for (const auto &message : { firstMessage(Casb), secondMessage(Casb) })
        world.notificationCenter.post({ world.notificationCenter.observedNames().first(), {}, message });
    world.runLoop.settle();
    EXPECT_EQ(lines("window content").size(), 2U);
    EXPECT_EQ(lines("window key and front").size(), 1U); // the notice that is shown alone
    EXPECT_EQ(eventsToTheEnd(),
        (std::vector<std::string> { "7000 request second", "12000 invisible", "13000 terminate" }));
}
