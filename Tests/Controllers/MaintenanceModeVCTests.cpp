#include "Controllers/MaintenanceModeVC.h"

#include "Support/CustomAPPManager.h"
#include "Tests/Controllers/NoticeTest.h"

namespace {

constexpr auto setHeaderLogo = "[Controllers/MaintenanceModeVC setHeaderLogo()] ";

class MaintenanceModeVCTest : public NoticeTest {
protected:
    std::shared_ptr<MaintenanceModeVC> appear(const QVariantMap &message = maintenanceMessage()) {
        return world.appear<MaintenanceModeVC>("MaintenanceModeVC", message);
    }
};

} // namespace

TEST_F(MaintenanceModeVCTest, Appearing_WithoutAResponseShowsTheTextAndLogsNothing) {
    const auto controller = appear();
    EXPECT_EQ(controller->textMessageLabel->stringValue(), "Back at six.");
    EXPECT_EQ(logoColor(*controller->headerLogoImageView), NoticeWorld::brandLogoColor());
    EXPECT_THAT(world.journal.lines(),
        ElementsAre("window content MaintenanceModeVC", "window alpha 1.0", "window title bar transparent",
            "window background #ff1e2234"));
}

// Its own flag, which makes other notices transparent, does not count here.
TEST_F(MaintenanceModeVCTest, Appearing_IsVisible) {
    appear(maintenanceMessage().with("WebSocketType", true));
    EXPECT_EQ(world.window.alphaValue(), 1.0);
    EXPECT_EQ(count("window alpha 0.0"), 0);
}

TEST_F(MaintenanceModeVCTest, Appearing_TakesLogoHeaderColourAndButtonStyleFromTheBrand) {
    const auto controller = appear();
    EXPECT_EQ(paintedColor(*controller->headerView, -2, 2), QColor(0x11, 0x22, 0x33));
    EXPECT_EQ(paintedColor(*controller->view(), 2, -2), QColor(Qt::white));
    EXPECT_EQ(controller->okButton->layerBackgroundColor().rgba(), accentColor.rgba());
    EXPECT_EQ(paintedColor(*controller->okButton, 6, -4), accentColor);
    EXPECT_EQ(controller->okButton->cornerRadius(), 3.0);
}

TEST_F(MaintenanceModeVCTest, Appearing_AnUnreadableHeaderColourIsGrayAndAMissingLogoIsNone) {
    auto settings = NoticeWorld::settings();
    settings.insert(QStringLiteral("globalAppViewBackgroundColor"), QStringLiteral("#FFF"));
    settings.insert(QStringLiteral("AppLogo"), QStringLiteral("nowhere"));
    world.files.setSettings(settings);
    const auto controller = appear();
    EXPECT_EQ(controller->headerView->layerBackgroundColor().rgb(), qRgb(128, 128, 128));
    EXPECT_EQ(logoColor(*controller->headerLogoImageView), std::nullopt);
}

TEST_F(MaintenanceModeVCTest, Response_IsLoggedWhole) {
    const auto xml = QStringLiteral("<not even\nXML & all");
    appear(maintenanceMessage().withResponse(xml));
    EXPECT_THAT(world.journal.lines(),
        ElementsAre("window content MaintenanceModeVC", "window alpha 1.0", "window title bar transparent",
            "window background #ff1e2234",
            std::string("debug ") + setHeaderLogo + "Web Socket XML : " + xml.toStdString()));
}

TEST_F(MaintenanceModeVCTest, Response_AllowsThePayloadLogo) {
    const auto bytes = logoBytes(payloadLogoColor);
    const auto controller = appear(maintenanceMessage().withResponse(QString()).withLogo(bytes));
    EXPECT_EQ(logoColor(*controller->headerLogoImageView), payloadLogoColor);
    EXPECT_THAT(lines("debug"), ElementsAre(std::string("debug ") + setHeaderLogo + "Web Socket XML : "));
    EXPECT_THAT(lines("info"),
        ElementsAre(
            std::string("info ") + setHeaderLogo + "Setting Logo from Zelvik Sase Client " + sizeOf(bytes)));
}

TEST_F(MaintenanceModeVCTest, PayloadLogo_WithoutAResponseIsNotUsed) {
    for (const QVariant &response : { QVariant(), QVariant(5), QVariant(QByteArray("<a/>")) }) {
        auto message = maintenanceMessage().withLogo(logoBytes(payloadLogoColor));
        if (response.isValid())
            message.with("webSocketResponse", response);
        const auto controller = appear(message);
        EXPECT_EQ(logoColor(*controller->headerLogoImageView), NoticeWorld::brandLogoColor());
        EXPECT_THAT(world.log.records(), IsEmpty());
    }
}

TEST_F(MaintenanceModeVCTest, PayloadLogo_BytesThatAreNoImageClearTheLogoAndOtherTypesAreIgnored) {
    const struct {
        QVariant value;
        std::optional<QColor> shown;
        std::size_t infoRecords;
    } rows[] { { QByteArray("no image"), std::nullopt, 1 }, { QByteArray(""), std::nullopt, 1 },
        { QStringLiteral("text"), NoticeWorld::brandLogoColor(), 0 },
        { false, NoticeWorld::brandLogoColor(), 0 } };
    for (const auto &row : rows) {
        const auto controller = appear(
            maintenanceMessage().withResponse(QStringLiteral("<a/>")).with("HeaderLogoImage", row.value));
        EXPECT_EQ(logoColor(*controller->headerLogoImageView), row.shown);
        EXPECT_EQ(lines("info").size(), row.infoRecords);
    }
}

TEST_F(MaintenanceModeVCTest, Text_AbsentOrOfAnotherTypeIsEmptyAndTheWindowIsStillShown) {
    for (const QVariant &value : { QVariant(), QVariant(6), QVariant(true), QVariant(QByteArray("text")) }) {
        auto message
            = maintenanceMessage().without("MaintenanceMessageKey").withResponse(QStringLiteral("<a/>"));
        if (value.isValid())
            message.with("MaintenanceMessageKey", value);
        EXPECT_EQ(appear(message)->textMessageLabel->stringValue(), "");
        EXPECT_EQ(world.window.alphaValue(), 1.0);
        EXPECT_THAT(lines("error"), IsEmpty());
    }
}

TEST_F(MaintenanceModeVCTest, Text_IsShownExactlyAsReceived) {
    const auto text = QStringLiteral("  <b>Back</b> at\n six &amp; not before.  ");
    EXPECT_EQ(
        appear(maintenanceMessage().with("MaintenanceMessageKey", text))->textMessageLabel->stringValue(),
        text);
}

// Deliberate: with a response the text is set a second time, behind its record.
TEST_F(MaintenanceModeVCTest, Text_IsSetAgainWithTheResponse) {
    auto controller = std::dynamic_pointer_cast<MaintenanceModeVC>(
        world.instantiate("MaintenanceModeVC", maintenanceMessage().withResponse(QStringLiteral("<a/>"))));
    world.journal.whenever(QStringLiteral("debug "), [&] {
        EXPECT_EQ(controller->textMessageLabel->stringValue(), "Back at six.");
        controller->textMessageLabel->setStringValue(QStringLiteral("something else"));
    });
    world.window.setContentViewController(controller);
    EXPECT_EQ(controller->textMessageLabel->stringValue(), "Back at six.");
}

TEST_F(MaintenanceModeVCTest, VendorRule_IsBlackForOneExactWordOnly) {
    const struct {
        const char *vendor;
        QColor background;
    } rows[] { { "KORVANE", QColor(0, 0, 0) }, { "korvane", QColor(30, 34, 52) },
        { "Korvane", QColor(30, 34, 52) }, { "KORVANE ", QColor(30, 34, 52) },
        { "KORVANES", QColor(30, 34, 52) }, { "zelvik", QColor(30, 34, 52) }, { "", QColor(30, 34, 52) } };
    for (const auto &row : rows) {
        world.files.setSettings(NoticeWorld::settings(QString::fromLatin1(row.vendor)));
        appear();
        EXPECT_EQ(world.window.backgroundColor(), row.background) << row.vendor;
        EXPECT_TRUE(world.window.titlebarAppearsTransparent());
    }
}

// Deliberate: the settings are read again between the header and the window's background.
TEST_F(MaintenanceModeVCTest, SettingsReload_LogoAndHeaderAreFromBeforeTheVendorFromAfter) {
    auto controller = std::dynamic_pointer_cast<MaintenanceModeVC>(
        world.instantiate("MaintenanceModeVC", maintenanceMessage()));
    world.files.addImage(QStringLiteral("otherLogo"), Qt::blue);
    world.files.setSettings({ { QStringLiteral("AppLogo"), QStringLiteral("otherLogo") },
        { QStringLiteral("Vendor"), QStringLiteral("KORVANE") },
        { QStringLiteral("LogFolderName"), QStringLiteral("other") },
        { QStringLiteral("globalAppViewBackgroundColor"), QStringLiteral("#445566") } });
    world.window.setContentViewController(controller);

    EXPECT_EQ(logoColor(*controller->headerLogoImageView), NoticeWorld::brandLogoColor());
    EXPECT_EQ(controller->headerView->layerBackgroundColor().rgb(), qRgb(0x11, 0x22, 0x33));
    EXPECT_EQ(world.window.backgroundColor(), QColor(0, 0, 0));
    // What is shown later sees all of it.
    EXPECT_EQ(CustomAPPManager::AppLogo, "otherLogo");
    EXPECT_EQ(CustomAPPManager::globalAppViewBackgroundColor, "#445566");
    EXPECT_EQ(CustomAPPManager::logFilePath, "/private/var/log/other/other_Tevanic.log");
}

TEST_F(MaintenanceModeVCTest, SettingsReload_AFileThatIsGoneChangesNothing) {
    world.files.setSettings(NoticeWorld::settings(QStringLiteral("KORVANE")));
    const auto controller = world.instantiate("MaintenanceModeVC", maintenanceMessage());
    world.files.removeSettings();
    world.window.setContentViewController(controller);
    EXPECT_EQ(world.window.backgroundColor(), QColor(0, 0, 0));
}

TEST_F(MaintenanceModeVCTest, SettingsReload_HappensAlsoWithoutAWindow) {
    world.instantiate("MaintenanceModeVC", maintenanceMessage());
    world.files.setSettings(NoticeWorld::settings(QStringLiteral("other")));
    const auto controller = std::dynamic_pointer_cast<MaintenanceModeVC>(
        world.storyboard.instantiateControllerWithIdentifier(QStringLiteral("MaintenanceModeVC")));
    controller->applyVendorWindowBackground();
    EXPECT_EQ(CustomAPPManager::Vendor, "other");
    EXPECT_THAT(lines("window"), IsEmpty());
}

TEST_F(MaintenanceModeVCTest, Ok_HidesTheWindowAndEndsTheApplicationAtOnce) {
    const auto controller = appear();
    world.journal.clear();
    controller->okButton->click();
    EXPECT_THAT(world.journal.lines(), ElementsAre("window alpha 0.0", "terminate by MaintenanceModeVC"));
    EXPECT_EQ(world.application.terminations()[0].sender, controller.get());
}

TEST_F(MaintenanceModeVCTest, NothingRunsByItself) {
    appear(maintenanceMessage().withResponse(QStringLiteral("<a/>")));
    EXPECT_EQ(world.runLoop.nextDeadline(), std::nullopt);
    EXPECT_FALSE(world.runLoop.turn());
    EXPECT_TRUE(world.notificationCenter.posted().empty());
    EXPECT_EQ(world.gateway.clientsMade(), 0);
}

TEST_F(MaintenanceModeVCTest, TextMessage_IsEmptyAndStaysSo) {
    EXPECT_EQ(appear()->textMessage, "");
}

TEST_F(MaintenanceModeVCTest, WithoutAWindow_EverythingButTheWindowsStyleHappens) {
    const auto controller
        = world.appearWithoutWindow<MaintenanceModeVC>("MaintenanceModeVC", maintenanceMessage());
    EXPECT_EQ(controller->textMessageLabel->stringValue(), "Back at six.");
    controller->okAction();
    EXPECT_THAT(lines("window"), IsEmpty());
    EXPECT_EQ(world.application.terminations().size(), 1U);
}

TEST_F(MaintenanceModeVCTest, WithoutALogger_NothingElseChanges) {
    const WithoutLogger none(world);
    const auto controller = appear(
        maintenanceMessage().withResponse(QStringLiteral("<a/>")).withLogo(logoBytes(payloadLogoColor)));
    EXPECT_EQ(logoColor(*controller->headerLogoImageView), payloadLogoColor);
    EXPECT_EQ(controller->textMessageLabel->stringValue(), "Back at six.");
    EXPECT_THAT(world.log.records(), IsEmpty());
}

TEST_F(MaintenanceModeVCTest, Replaced_Goes) {
    std::weak_ptr<MaintenanceModeVC> controller = appear();
    ASSERT_FALSE(controller.expired());
    world.window.setContentViewController(nullptr);
    EXPECT_TRUE(controller.expired());
}
