#include "Controllers/ConcurrentSessionVC.h"

#include "Support/CustomAPPManager.h"
#include "Tests/Controllers/NoticeTest.h"

namespace {

constexpr auto updateLabel = "[Controllers/ConcurrentSessionVC updateLabel()] ";

class ConcurrentSessionVCTest : public NoticeTest {
protected:
    std::shared_ptr<ConcurrentSessionVC> appear(const QVariantMap &message = concurrentSessionMessage()) {
        return world.appear<ConcurrentSessionVC>("ConcurrentSessionVC", message);
    }

    static std::string debugLine(const QString &xml) {
        return std::string("debug ") + updateLabel + "Parsing websocket response: " + xml.toStdString();
    }
};

} // namespace

TEST_F(ConcurrentSessionVCTest, Appearing_FillsTheLabelsBeforeItStylesTheWindow) {
    const auto message = concurrentSessionMessage();
    appear(message);
    EXPECT_THAT(world.journal.lines(),
        ElementsAre("window content ConcurrentSessionVC", "window alpha 1.0", "window alpha 1.0",
            std::string("info ") + updateLabel + "Response received from Zelvik Sase Client...",
            debugLine(message.document()), "window title bar transparent", "window background #ff1e2234"));
}

TEST_F(ConcurrentSessionVCTest, Appearing_ShowsHeadByModuleAndTheBody) {
    const auto controller = appear();
    EXPECT_EQ(controller->headerTextLabel->stringValue(), "Signed out by Session Control");
    EXPECT_EQ(controller->textMessageLabel->stringValue(), "You have signed in on another device.");
}

TEST_F(ConcurrentSessionVCTest, MissingElementsAreEmptyTexts) {
    const struct {
        Message message;
        const char *header;
        const char *body;
    } rows[] {
        { concurrentSessionMessage().withoutModule().withoutBody(), "Signed out by ", "" },
        { concurrentSessionMessage().withoutHead(), " by Session Control",
            "You have signed in on another device." },
        { concurrentSessionMessage().withoutHead().withoutModule(), " by ",
            "You have signed in on another device." },
        { concurrentSessionMessage().withHead(QString()), " by Session Control",
            "You have signed in on another device." },
        { concurrentSessionMessage().withResponse(QStringLiteral("<another-root/>")), " by ", "" },
        { concurrentSessionMessage().withResponse(
              QStringLiteral("<another-root><notifications><head>H</head></notifications></another-root>")),
            " by ", "" },
    };
    for (const auto &row : rows) {
        const auto controller = appear(row.message);
        EXPECT_EQ(controller->headerTextLabel->stringValue(), row.header);
        EXPECT_EQ(controller->textMessageLabel->stringValue(), row.body);
        EXPECT_THAT(lines("error"), IsEmpty());
    }
}

TEST_F(ConcurrentSessionVCTest, TextThatIsNoXmlIsLoggedAsReceivedAndShownAsEmptyTexts) {
    for (const char *text : { "no XML at all", "", "<a><b></a>" }) {
        const auto controller = appear(concurrentSessionMessage().withResponse(QString::fromLatin1(text)));
        EXPECT_EQ(controller->headerTextLabel->stringValue(), " by ");
        EXPECT_EQ(controller->textMessageLabel->stringValue(), "");
        EXPECT_EQ(world.window.alphaValue(), 1.0);
        EXPECT_EQ(count(debugLine(QString::fromLatin1(text))), 1);
        EXPECT_THAT(lines("error"), IsEmpty());
        EXPECT_THAT(world.application.terminations(), IsEmpty());
    }
}

TEST_F(ConcurrentSessionVCTest, BodyIsShownUnchanged) {
    const auto body = QStringLiteral("  <b>two</b>\n lines &  ");
    EXPECT_EQ(appear(concurrentSessionMessage().withBody(body))->textMessageLabel->stringValue(), body);
}

TEST_F(ConcurrentSessionVCTest, NoMessage_IsAnErrorAndTheWindowStaysInvisible) {
    const QVariant values[] { QVariant(), 5, true, QByteArray("<a/>"), QVariantList() };
    for (const auto &value : values) {
        auto message = emptyMessage().with("WebSocketAdminDisconnect", true).withLogo(logoBytes(Qt::red));
        if (value.isValid())
            message.with("webSocketResponse", value);
        const auto controller = appear(message);
        // The style is still applied; the logo and the texts are not touched.
        EXPECT_THAT(world.journal.lines(),
            ElementsAre("window content ConcurrentSessionVC", "window alpha 1.0",
                std::string("error ") + updateLabel + "Unable to receive Response from Zelvik Sase Client...",
                "window alpha 0.0", "window title bar transparent", "window background #ff1e2234"));
        EXPECT_EQ(controller->headerTextLabel->stringValue(), "");
        EXPECT_EQ(controller->textMessageLabel->stringValue(), "");
        EXPECT_EQ(logoColor(*controller->headerLogoImageView), std::nullopt);
        EXPECT_EQ(controller->okButton->cornerRadius(), 3.0);
    }
    EXPECT_THAT(world.application.terminations(), IsEmpty());
}

TEST_F(ConcurrentSessionVCTest, IsVisibleWhateverWebSocketTypeSays) {
    appear(concurrentSessionMessage().with("WebSocketType", true));
    EXPECT_EQ(count("window alpha 0.0"), 0);
}

// Deliberate: neither the configured logo nor the configured header colour.
TEST_F(ConcurrentSessionVCTest, Style_IsNotTheBrands) {
    const auto controller = appear();
    EXPECT_EQ(logoColor(*controller->headerLogoImageView), std::nullopt); // the form has none
    EXPECT_EQ(controller->headerView->layerBackgroundColor().rgba(), accentColor.rgba());
    EXPECT_EQ(paintedColor(*controller->headerView, -2, 2), accentColor);
    EXPECT_EQ(paintedColor(*controller->view(), 2, -2), QColor(Qt::white));
    EXPECT_EQ(controller->okButton->layerBackgroundColor().rgba(), accentColor.rgba());
    EXPECT_EQ(paintedColor(*controller->okButton, 6, -4), accentColor);
    EXPECT_EQ(controller->okButton->cornerRadius(), 3.0);
    EXPECT_TRUE(world.window.titlebarAppearsTransparent());
}

// Deliberate: no vendor rule.
TEST_F(ConcurrentSessionVCTest, Style_WindowBackgroundIsTheSameForEveryVendor) {
    for (const char *vendor : { "zelvik", "KORVANE", "" }) {
        world.files.setSettings(NoticeWorld::settings(QString::fromLatin1(vendor)));
        appear();
        EXPECT_EQ(world.window.backgroundColor(), QColor(30, 34, 52)) << vendor;
    }
}

TEST_F(ConcurrentSessionVCTest, PayloadLogo_IsShownAndLoggedBehindTheTexts) {
    const auto bytes = logoBytes(payloadLogoColor);
    const auto message = concurrentSessionMessage().withLogo(bytes);
    const auto controller = appear(message);
    EXPECT_EQ(logoColor(*controller->headerLogoImageView), payloadLogoColor);
    EXPECT_THAT(lines("info"),
        ElementsAre(std::string("info ") + updateLabel + "Response received from Zelvik Sase Client...",
            std::string("info ") + updateLabel + "Setting Logo from Zelvik Sase Client " + sizeOf(bytes)));
}

TEST_F(ConcurrentSessionVCTest, PayloadLogo_BytesThatAreNoImageClearTheLogoAndOtherTypesAreIgnored) {
    const struct {
        QVariant value;
        std::optional<QColor> shown;
        std::size_t infoRecords;
    } rows[] { { QByteArray("no image"), std::nullopt, 2 }, { QByteArray(""), std::nullopt, 2 },
        { QStringLiteral("text"), QColor(Qt::blue), 1 }, { 7, QColor(Qt::blue), 1 } };
    for (const auto &row : rows) {
        auto controller = std::dynamic_pointer_cast<ConcurrentSessionVC>(world.instantiate(
            "ConcurrentSessionVC", concurrentSessionMessage().with("HeaderLogoImage", row.value)));
        controller->headerLogoImageView->setImage(Image::withData(logoBytes(Qt::blue))); // the form's own
        world.journal.clear();
        world.window.setContentViewController(controller);
        EXPECT_EQ(logoColor(*controller->headerLogoImageView), row.shown);
        EXPECT_EQ(lines("info").size(), row.infoRecords);
    }
}

TEST_F(ConcurrentSessionVCTest, Ok_HidesTheWindowAndEndsTheApplicationAtOnce) {
    const auto controller = appear();
    world.journal.clear();
    controller->okButton->click();
    EXPECT_THAT(world.journal.lines(), ElementsAre("window alpha 0.0", "terminate by ConcurrentSessionVC"));
    EXPECT_EQ(world.application.terminations()[0].sender, controller.get());
}

TEST_F(ConcurrentSessionVCTest, Ok_EndsTheApplicationAlsoWhenTheWindowIsInvisible) {
    const auto controller = appear(emptyMessage());
    ASSERT_EQ(world.window.alphaValue(), 0.0);
    controller->okAction();
    EXPECT_EQ(world.application.terminations().size(), 1U);
}

TEST_F(ConcurrentSessionVCTest, NothingRunsByItself) {
    appear();
    EXPECT_EQ(world.runLoop.nextDeadline(), std::nullopt);
    EXPECT_FALSE(world.runLoop.turn());
    EXPECT_TRUE(world.notificationCenter.posted().empty());
    EXPECT_EQ(world.gateway.clientsMade(), 0);
}

TEST_F(ConcurrentSessionVCTest, AppearingAgain_ReadsThePayloadOfThatMoment) {
    const auto controller = appear();
    CustomAPPManager::payload = concurrentSessionMessage().withBody(QStringLiteral("Later."));
    EXPECT_EQ(controller->textMessageLabel->stringValue(), "You have signed in on another device.");
    controller->viewWillAppear();
    EXPECT_EQ(controller->textMessageLabel->stringValue(), "Later.");
}

TEST_F(ConcurrentSessionVCTest, TextMessage_IsEmptyAndStaysSo) {
    const auto controller = appear();
    EXPECT_EQ(controller->textMessage, "");
}

TEST_F(ConcurrentSessionVCTest, WithoutAWindow_EverythingButTheWindowsStyleHappens) {
    const auto controller
        = world.appearWithoutWindow<ConcurrentSessionVC>("ConcurrentSessionVC", concurrentSessionMessage());
    EXPECT_EQ(controller->headerTextLabel->stringValue(), "Signed out by Session Control");
    EXPECT_EQ(controller->okButton->cornerRadius(), 3.0);
    controller->okAction();
    EXPECT_THAT(lines("window"), IsEmpty());
    EXPECT_EQ(world.application.terminations().size(), 1U);
    world.appearWithoutWindow<ConcurrentSessionVC>("ConcurrentSessionVC", emptyMessage());
    EXPECT_EQ(lines("error").size(), 1U);
}

TEST_F(ConcurrentSessionVCTest, WithoutALogger_NothingElseChanges) {
    const WithoutLogger none(world);
    EXPECT_EQ(appear()->headerTextLabel->stringValue(), "Signed out by Session Control");
    EXPECT_THAT(world.journal.lines(),
        ElementsAre("window content ConcurrentSessionVC", "window alpha 1.0", "window alpha 1.0",
            "window title bar transparent", "window background #ff1e2234"));
    appear(emptyMessage());
    EXPECT_EQ(world.window.alphaValue(), 0.0);
}

TEST_F(ConcurrentSessionVCTest, Replaced_Goes) {
    std::weak_ptr<ConcurrentSessionVC> controller = appear();
    ASSERT_FALSE(controller.expired());
    world.window.setContentViewController(nullptr);
    EXPECT_TRUE(controller.expired());
}
