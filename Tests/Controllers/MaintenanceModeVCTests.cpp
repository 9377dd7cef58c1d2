#include "Controllers/MaintenanceModeVC.h"

#include "Support/CustomAPPManager.h"
#include "Tests/Controllers/NoticeTest.h"

namespace {

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

TEST_F(MaintenanceModeVCTest, PayloadLogo_NeedsAResponseWhateverItSays) {
    EXPECT_EQ(
        logoColor(*appear(maintenanceMessage().withResponse(QString()).withLogo(logoBytes(payloadLogoColor)))
                       ->headerLogoImageView),
        payloadLogoColor);
    EXPECT_EQ(lines("debug").size(), 1U);
    for (const QVariant &response : { QVariant(), QVariant(5), QVariant(QByteArray("<a/>")) }) {
        auto message = maintenanceMessage().withLogo(logoBytes(payloadLogoColor));
        if (response.isValid())
            message.with("webSocketResponse", response);
        const auto controller = appear(message);
        EXPECT_EQ(logoColor(*controller->headerLogoImageView), NoticeWorld::brandLogoColor());
        EXPECT_THAT(lines("debug"), IsEmpty());
    }
}

TEST_F(MaintenanceModeVCTest, Text_IsShownAsReceivedAndIsEmptyWhenItIsNoText) {
    const auto marked = QStringLiteral("  <b>Back</b> at\n six &amp; not before.  ");
    const std::pair<QVariant, QString> rows[] { { marked, marked }, { QVariant(), {} }, { 6, {} },
        { QByteArray("text"), {} } };
    for (const auto &[value, shown] : rows) {
        const auto controller = appear(
            maintenanceMessage().with("MaintenanceMessageKey", value).withResponse(QStringLiteral("<a/>")));
        EXPECT_EQ(controller->textMessageLabel->stringValue(), shown);
        EXPECT_EQ(world.window.alphaValue(), 1.0);
        EXPECT_THAT(lines("error"), IsEmpty());
    }
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

TEST_F(MaintenanceModeVCTest, SettingsReload_HappensAlsoWithoutAWindow) {
    world.instantiate("MaintenanceModeVC", maintenanceMessage());
    world.files.setSettings(NoticeWorld::settings(QStringLiteral("other")));
    const auto controller = std::dynamic_pointer_cast<MaintenanceModeVC>(
        world.storyboard.instantiateControllerWithIdentifier(QStringLiteral("MaintenanceModeVC")));
    controller->applyVendorWindowBackground();
    EXPECT_EQ(CustomAPPManager::Vendor, "other");
    EXPECT_THAT(lines("window"), IsEmpty());
}
