#include "Controllers/ViewController.h"

#include "Support/CustomAPPManager.h"
#include "Tests/Controllers/NoticeTest.h"

#include <thread>

namespace {

using Entries = std::vector<std::pair<QString, QString>>;

constexpr auto url = "https://gateway.example/closed?id=1";

std::string infoLine(const char *function, const std::string &text) {
    return std::string("info [Controllers/ViewController ") + function + "] " + text;
}

std::string debugLine(const char *function, const std::string &text) {
    return std::string("debug [Controllers/ViewController ") + function + "] " + text;
}

std::string callingLine(const std::string &address) {
    return infoLine(
        "postUrlOnCloseActivity(url:)", "Closing Active window , Calling Activity URL: " + address);
}

const std::string requestLine = std::string("request GET ") + url;
const std::string parsedLine
    = infoLine("setupView(data:)", "Parsing successful, Creating Timer Instance to update Auto Close UI");

class ViewControllerTest : public NoticeTest {
protected:
    /// Shown, but not filled yet.
    std::shared_ptr<ViewController> install(const QVariantMap &message) {
        return world.appear<ViewController>("ViewController", message);
    }

    /// Shown and filled; the countdown, if any, begins at this moment.
    std::shared_ptr<ViewController> appear(const QVariantMap &message = casbMessage()) {
        auto controller = install(message);
        world.runLoop.settle();
        return controller;
    }

    std::vector<std::string> requests() const { return lines("request "); }
};

} // namespace

// Appearing

TEST_F(ViewControllerTest, NoResponse_IsAnErrorAndTheWindowIsInvisibleWithoutATimer) {
    for (const QVariant &response :
        { QVariant(), QVariant(5), QVariant(true), QVariant(QByteArray("<a/>")) }) {
        auto message = emptyMessage().withLogo(logoBytes(payloadLogoColor));
        if (response.isValid())
            message.with("webSocketResponse", response);
        const auto controller = appear(message);
        EXPECT_THAT(world.journal.lines(),
            ElementsAre("window content ViewController", "window alpha 1.0", "window title bar transparent",
                infoLine("changeToolbarTitle()", "Vendor is zelvik"), "print zelvik",
                "window background #ff1e2234",
                "error [Controllers/ViewController parseWebSocketResponse()] "
                "Unable to receive Response from Zelvik Sase Client...",
                "window alpha 0.0"));
        EXPECT_EQ(logoColor(*controller->headerLogoImageView), NoticeWorld::brandLogoColor());
        EXPECT_EQ(world.runLoop.nextDeadline(), std::nullopt);
        EXPECT_THAT(world.application.terminations(), IsEmpty());
    }
}

TEST_F(ViewControllerTest, PayloadLogo_IsSetAlsoWhenTheTextIsNoXml) {
    const auto controller
        = appear(emptyMessage().withResponse(QStringLiteral("no XML")).withLogo(logoBytes(payloadLogoColor)));
    EXPECT_EQ(logoColor(*controller->headerLogoImageView), payloadLogoColor);
}

// updateNotificationWindow(xmlStr:)

TEST_F(ViewControllerTest, Update_MayBeCalledOnAnotherThread) {
    const auto controller = appear();
    world.journal.clear();
    const auto xml = casbMessage().withBody(QStringLiteral("From elsewhere.")).document();
    std::thread([&] { controller->updateNotificationWindow(xml); }).join();
    EXPECT_THAT(world.journal.lines(),
        ElementsAre(debugLine(
            "updateNotificationWindow(xmlStr:)", "Parsing websocket response: " + xml.toStdString())));
    EXPECT_EQ(controller->applicationInformationLabel->stringValue(), "This file may not leave the company.");
    world.runLoop.turn();
    EXPECT_EQ(controller->applicationInformationLabel->stringValue(), "From elsewhere.");
}

TEST_F(ViewControllerTest, Update_WithNoXmlLeavesAShownWindowUntouched) {
    const auto controller = appear();
    world.journal.clear();
    controller->updateNotificationWindow(QStringLiteral("<broken"));
    world.runLoop.settle();
    EXPECT_THAT(world.journal.lines(), IsEmpty());
    EXPECT_EQ(controller->activityText->stringValue(), "Upload");
    world.runLoop.advance(1s);
    EXPECT_EQ(controller->autoCloseLabel->stringValue(), "This window will auto close in 9 seconds");
}

TEST_F(ViewControllerTest, Update_OnAShownWindowStartsAFurtherCountdown) {
    const auto controller = appear();
    world.runLoop.advance(2500ms);
    controller->updateNotificationWindow(casbMessage()
                                             .withTimeout(QStringLiteral("20"))
                                             .withUrl(QStringLiteral("https://second/"))
                                             .document());
    world.runLoop.settle();
    EXPECT_TRUE(controller->autoCloseLabel->isHidden());
    world.runLoop.advance(500ms); // the first countdown
    EXPECT_EQ(controller->autoCloseLabel->stringValue(), "This window will auto close in 7 seconds");
    world.runLoop.advance(500ms); // the second
    EXPECT_EQ(controller->autoCloseLabel->stringValue(), "This window will auto close in 19 seconds");
    world.runLoop.advance(20s);
    EXPECT_THAT(requests(), ElementsAre(requestLine, "request GET https://second/"));
    ASSERT_EQ(world.application.terminations().size(), 2U);
    EXPECT_EQ(world.application.terminations()[0].at, 11s);
    EXPECT_EQ(world.application.terminations()[1].at, 23500ms);
}

// setupView(data:)

// Deliberate: the entries go by their place alone, and only the activity decides on the URL's being hidden
// and on the gap above OK.
TEST_F(ViewControllerTest, Setup_EntriesGoByTheirPlaceAndEmptyRowsCollapse) {
    const struct {
        Entries entries;
        std::array<const char *, 3> captions; // activity, application, URL
        std::array<const char *, 3> values;
    } rows[] {
        { {}, { "Activity", "Application", "URL" }, { "", "", "" } },
        { { { "A", "" } }, { "A", "Application", "A" }, { "", "", "" } },
        { { { "A", "a" } }, { "A", "Application", "A" }, { "a", "", "a" } },
        { { { "A", "" }, { "B", "b" } }, { "A", "B", "B" }, { "", "b", "b" } },
        { { { "A", "a" }, { "B", "b" } }, { "A", "B", "B" }, { "a", "b", "b" } },
        { { { "A", "a" }, { "B", "" } }, { "A", "B", "B" }, { "a", "", "" } },
        { { { "A", "a" }, { "B", "b" }, { "C", "c" } }, { "A", "B", "C" }, { "a", "b", "c" } },
        { { { "A", "" }, { "B", "b" }, { "C", "c" } }, { "A", "B", "C" }, { "", "b", "c" } },
        { { { "A", "a" }, { "B", "" }, { "C", "c" } }, { "A", "B", "C" }, { "a", "", "c" } },
        { { { "A", "a" }, { "B", "b" }, { "C", "" } }, { "A", "B", "C" }, { "a", "b", "" } },
        { { { "A", " " }, { "B", " " }, { "C", " " } }, { "A", "B", "C" }, { " ", " ", " " } },
        { { { "A", "a" }, { "B", "b" }, { "C", "c" }, { "D", "d" } }, { "A", "B", "D" }, { "a", "b", "d" } },
        { { { "", "a" }, { "", "b" }, { "", "c" } }, { "", "", "" }, { "a", "b", "c" } },
    };
    for (const auto &row : rows) {
        const auto controller = appear(casbMessage().withEntries(row.entries));
        const auto &notice = *controller;
        const std::array captions { notice.activityTitleLabel.get(), notice.applicationTitleLabel.get(),
            notice.urlTitleLabel.get() };
        const std::array values { notice.activityText.get(), notice.applicationText.get(),
            notice.urlText.get() };
        const std::array heights { notice.activityHeightConstant.get(),
            notice.applicationHeightConstant.get(), notice.urlHeightConstant.get() };
        for (std::size_t place = 0; place < values.size(); ++place) {
            EXPECT_EQ(captions[place]->stringValue(), row.captions[place]);
            EXPECT_FALSE(captions[place]->isHidden());
            EXPECT_EQ(values[place]->stringValue(), row.values[place]);
            EXPECT_EQ(heights[place]->constant() == 0.0, row.values[place][0] == '\0');
        }
        const bool hasNoActivity = row.values[0][0] == '\0';
        EXPECT_EQ(notice.urlText->isHidden(), hasNoActivity);
        EXPECT_EQ(notice.OkButtonTopConstraints->constant() == 25.0, hasNoActivity);
    }
}

TEST_F(ViewControllerTest, Setup_CaptionsTakenForGrantedAreEnglishInEveryLanguage) {
    world.files.addStrings(QStringLiteral("de"), { { "Activity", "Aktivität" }, { "URL", "Adresse" } });
    world.files.addStrings(QStringLiteral("de"),
        { { "Activity", "Aktivität" }, { "URL", "Adresse" }, { "Application", "Anwendung" } },
        QStringLiteral("Main"));
    world.mainBundle.switchLanguage(QStringLiteral("de"));
    const auto controller = appear(casbMessage().withEntries({}));
    EXPECT_EQ(controller->activityTitleLabel->stringValue(), "Activity");
    EXPECT_EQ(controller->urlTitleLabel->stringValue(), "URL");
    EXPECT_EQ(controller->applicationTitleLabel->stringValue(), "Anwendung"); // the form's own text stays
}

// Deliberate: two keys, one with a blank at its end and one without.
TEST_F(ViewControllerTest, CountdownTexts_AreLookedUpUnderTwoKeys) {
    world.files.addStrings(QStringLiteral("de"),
        { { "This window will auto close in ", "<first>" }, { "This window will auto close in", "<later>" },
            { "seconds", "Sekunden" } });
    world.mainBundle.switchLanguage(QStringLiteral("de"));
    const auto controller = appear();
    EXPECT_EQ(controller->autoCloseLabel->stringValue(), "<first>10  Sekunden");
    world.runLoop.advance(1s);
    EXPECT_EQ(controller->autoCloseLabel->stringValue(), "<later> 9 Sekunden");
    world.mainBundle.switchLanguage(QStringLiteral("xx"));
    world.runLoop.advance(1s);
    EXPECT_EQ(controller->autoCloseLabel->stringValue(), "This window will auto close in 8 seconds");
}

TEST_F(ViewControllerTest, Setup_RemembersTheTimeOutOfTheNotice) {
    EXPECT_EQ(ViewController::closeActivityUrl, "");
    EXPECT_EQ(ViewController::autoCloseSeconds, 30);
    appear(casbMessage().withTimeout(QStringLiteral("77")));
    EXPECT_EQ(ViewController::autoCloseSeconds, 77);
    appear(casbMessage().withTimeout(QStringLiteral("-3")).withEntries({}));
    EXPECT_EQ(ViewController::autoCloseSeconds, -3);
}

// Rows

TEST_F(ViewControllerTest, Rows_NothingIsEverSetBack) {
    const auto controller = appear(casbMessage().withEntries({}));
    const auto update = [&](const Message &message) {
        controller->updateNotificationWindow(message.document());
        world.runLoop.settle();
    };
    update(casbMessage());
    EXPECT_EQ(controller->activityText->stringValue(), "Upload");
    EXPECT_EQ(controller->activityHeightConstant->constant(), 0.0);
    EXPECT_EQ(controller->applicationHeightConstant->constant(), 0.0);
    EXPECT_EQ(controller->urlHeightConstant->constant(), 0.0);
    EXPECT_TRUE(controller->urlText->isHidden());
    EXPECT_EQ(controller->OkButtonTopConstraints->constant(), 25.0);
    EXPECT_EQ(world.runLoop.nextDeadline(), 1s); // but it counts down now
    update(casbMessage().withEntries({ { QStringLiteral("X"), QStringLiteral("x") } }));
    EXPECT_EQ(controller->activityText->stringValue(), "x");
    EXPECT_EQ(controller->applicationTitleLabel->stringValue(), "Where");
    EXPECT_EQ(controller->applicationText->stringValue(), "Filebox");
}

TEST_F(ViewControllerTest, ToolTips_AreForTextsThatAreCutOnly) {
    const auto controller = install(casbMessage());
    const std::array labels { controller->applicationInformationLabel.get(), controller->activityText.get(),
        controller->applicationText.get(), controller->urlText.get() };
    for (auto *label : labels)
        label->setCursor(Qt::WaitCursor);
    world.runLoop.settle();
    for (const auto *label : labels)
        EXPECT_NE(label->cursor().shape(), Qt::WaitCursor) << "the cursor rectangles are reset";

    const auto shown = QStringLiteral("short");
    const auto cut = QStringLiteral("a rather long value of many words ").repeated(20);
    controller->informationHeightConstant->setConstant(20.0);
    // Each of them in its turn is cut, and then shown whole again.
    for (const auto *longOne : labels) {
        const auto text = [&](const TextField *label) { return label == longOne ? cut : shown; };
        controller->updateNotificationWindow(
            casbMessage()
                .withBody(text(labels[0]))
                .withEntries({ { "A", text(labels[1]) }, { "B", text(labels[2]) }, { "C", text(labels[3]) } })
                .document());
        world.runLoop.settle();
        for (const auto *label : labels)
            EXPECT_EQ(label->allowsExpansionToolTips(), label == longOne);
    }
}

TEST_F(ViewControllerTest, ToolTips_GoByTheFramesOfTheTextsJustSet) {
    const auto body = QStringLiteral("A sentence of the information. ").repeated(20);
    EXPECT_FALSE(
        appear(casbMessage().withBody(body))->applicationInformationLabel->allowsExpansionToolTips());
}

// The countdown

TEST_F(ViewControllerTest, Countdown_TimeOutsDecideOnRequestHidingAndEnd) {
    using std::chrono::seconds;
    constexpr int never = -1;
    const struct {
        std::optional<QString> timeout;
        int requested; // seconds after set-up
        int invisible;
        int ended;
    } rows[] {
        { QStringLiteral("30"), 25, 30, 31 },
        { QStringLiteral("7"), 2, 7, 8 },
        { QStringLiteral("6"), 1, 6, 7 },
        { QStringLiteral("5"), never, 5, 6 },
        { QStringLiteral("1"), never, 1, 2 },
        { QStringLiteral("0"), never, never, 1 },
        { QStringLiteral("-3"), never, never, 1 },
        { std::nullopt, 5, 10, 11 },
    };
    for (const auto &row : rows) {
        const auto controller = appear(casbMessage().withTimeout(row.timeout));
        world.journal.clear();
        const auto endsBefore = world.application.terminations().size();
        for (int second = 1; second <= row.ended; ++second) {
            world.runLoop.advance(1s - 1ms);
            EXPECT_EQ(world.application.terminations().size(), endsBefore);
            world.runLoop.advance(1ms);
            EXPECT_EQ(requests().size(), row.requested != never && second >= row.requested ? 1U : 0U)
                << row.timeout.value_or("none").toStdString() << " at " << second;
            EXPECT_EQ(count("window alpha 0.0"), row.invisible != never && second >= row.invisible ? 1 : 0)
                << row.timeout.value_or("none").toStdString() << " at " << second;
        }
        EXPECT_EQ(world.application.terminations().size(), endsBefore + 1);
        EXPECT_EQ(world.runLoop.nextDeadline(), std::nullopt);
    }
}

TEST_F(ViewControllerTest, NoActivity_NothingCountsDownAndTheWindowStays) {
    ViewController::closeActivityUrl = QStringLiteral("https://earlier/");
    const auto controller = appear(casbMessage().withEntries({ { "A", "" }, { "B", "b" } }));
    EXPECT_EQ(world.runLoop.nextDeadline(), std::nullopt);
    world.runLoop.advance(1h);
    EXPECT_TRUE(controller->autoCloseLabel->isHidden());
    EXPECT_EQ(world.window.alphaValue(), 1.0);
    EXPECT_EQ(count("window level 3"), 1);
    EXPECT_EQ(ViewController::closeActivityUrl, "https://earlier/");
    EXPECT_THAT(world.application.terminations(), IsEmpty());
}

// OK

TEST_F(ViewControllerTest, Ok_AfterTheCountdownsRequestMakesASecondOne) {
    const auto controller = appear();
    world.runLoop.advance(5500ms);
    controller->okButton->click();
    EXPECT_THAT(requests(), ElementsAre(requestLine, requestLine));
    EXPECT_EQ(world.gateway.clientsMade(), 2);
}

// Deliberate: a notice without a countdown of its own requests the URL of an earlier notice.
TEST_F(ViewControllerTest, Ok_RequestsTheUrlOfTheLatestCountdown) {
    const auto requestsOnOk = [this](const QVariantMap &message) {
        const auto controller = appear(message);
        world.journal.clear();
        controller->okButton->click();
        return requests();
    };
    const auto withoutCountdown
        = casbMessage().withEntries({}).withUrl(QStringLiteral("https://not-this-one/"));
    EXPECT_THAT(requestsOnOk(withoutCountdown), ElementsAre("request GET "));
    EXPECT_THAT(requestsOnOk(casbMessage()), ElementsAre(requestLine));
    EXPECT_THAT(requestsOnOk(withoutCountdown), ElementsAre(requestLine));
    EXPECT_THAT(requestsOnOk(casbMessage().withUrl(QString())), ElementsAre("request GET "));
}

// The request

TEST_F(ViewControllerTest, Request_SendsTheUrlUnchangedWithGetAndNoParameters) {
    for (const auto *address : { "", "  https://a b/ü?x=%41&y=<>\"'#f  ", "not a URL", "ftp://x/../y" }) {
        const auto before = world.gateway.clientsMade();
        appear()->postUrlOnCloseActivity(QString::fromUtf8(address));
        EXPECT_EQ(world.gateway.clientsMade(), before + 1); // a new client each time
        const auto &request = world.gateway.requests().back();
        EXPECT_EQ(request.url, address);
        EXPECT_FALSE(request.hasParameters);
        EXPECT_EQ(request.method, "GET");
        EXPECT_EQ(count(callingLine(address)), 1);
    }
}

TEST_F(ViewControllerTest, Request_AnswerIsOnlyLoggedOnAnyThreadAndWhenTheNoticeIsGone) {
    std::weak_ptr<ViewController> controller = appear(casbMessage().withEntries({}));
    controller.lock()->postUrlOnCloseActivity(QString::fromLatin1(url));
    world.window.setContentViewController(nullptr);
    ASSERT_TRUE(controller.expired());
    const std::pair<std::optional<int>, const char *> rows[] { { 200, "Close Activity Optional(200)" },
        { 500, "Close Activity Optional(500)" }, { std::nullopt, "Close Activity nil" } };
    for (const auto &row : rows) {
        world.journal.clear();
        std::thread([&] { world.gateway.requests().back().completion({ row.first }); }).join();
        EXPECT_THAT(
            world.journal.lines(), ElementsAre(debugLine("postUrlOnCloseActivity(url:)", row.second)));
    }
}

TEST_F(ViewControllerTest, Request_WithoutAGatewayClientIsARecordAndNoMore) {
    world.gateway.setMissing(true);
    const auto controller = appear();
    world.journal.clear();
    controller->okButton->click();
    EXPECT_THAT(world.journal.lines(),
        ElementsAre("window alpha 0.0", callingLine(url),
            debugLine("postUrlOnCloseActivity(url:)", "Close Activity nil")));
    world.runLoop.advance(1s);
    EXPECT_EQ(world.application.terminations().size(), 1U);
}

// Life

TEST_F(ViewControllerTest, Replaced_BeforeItWasFilledItCountsDownAndShowsNoWindow) {
    std::weak_ptr<ViewController> controller = install(casbMessage());
    world.window.setContentViewController(nullptr);
    ASSERT_FALSE(controller.expired());
    world.journal.clear();
    world.runLoop.settle();
    EXPECT_THAT(world.journal.lines(), ElementsAre(parsedLine));
    EXPECT_EQ(ViewController::closeActivityUrl, url);
    world.runLoop.advance(11s);
    EXPECT_EQ(requests().size(), 1U);
    EXPECT_EQ(world.application.terminations().size(), 1U);
    EXPECT_TRUE(controller.expired());
}
