#include "Controllers/MaintenanceModeVC.h"

#include "Controllers/MainStoryboard.h"
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

TEST_F(MaintenanceModeVCTest, Response_IsLoggedWholeAndLetsThePayloadLogoIn) {
    const auto bytes = logoBytes(payloadLogoColor);
    for (const char *text : { "<not even\nXML & all", "" }) {
        const auto controller
            = appear(maintenanceMessage().withResponse(QString::fromLatin1(text)).withLogo(bytes));
        EXPECT_EQ(logoColor(*controller->headerLogoImageView), payloadLogoColor);
        EXPECT_THAT(world.journal.lines(),
            ElementsAre("window content MaintenanceModeVC", "window alpha 1.0",
                "window title bar transparent", "window background #ff1e2234",
                std::string("debug ") + setHeaderLogo + "Web Socket XML : " + text,
                std::string("info ") + setHeaderLogo + "Setting Logo from Zelvik Sase Client "
                    + sizeOf(bytes)));
    }
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

namespace {

/// Another bundle, seen at work.
class WatchedBundle final : public Bundle {
public:
    WatchedBundle(const Bundle &bundle, std::function<void(const QString &)> sought)
        : bundle_(bundle)
        , sought_(std::move(sought)) { }

    std::optional<QString> pathForResource(const QString &name, const QString &type) const override {
        sought_(name);
        return bundle_.pathForResource(name, type);
    }
    QVariant objectForInfoDictionaryKey(const QString &key) const override {
        return bundle_.objectForInfoDictionaryKey(key);
    }
    QString localizedStringForKey(
        const QString &key, const QString &value, const QString &table) const override {
        return bundle_.localizedStringForKey(key, value, table);
    }
    QString localization() const override { return bundle_.localization(); }
    std::unique_ptr<Bundle> bundleWithPath(const QString &path) const override {
        return bundle_.bundleWithPath(path);
    }

private:
    const Bundle &bundle_;
    std::function<void(const QString &)> sought_;
};

} // namespace

TEST_F(MaintenanceModeVCTest, SettingsReload_ComesBehindTheTextAndTheButtonsStyle) {
    std::shared_ptr<MaintenanceModeVC> controller;
    bool looked = false;
    const WatchedBundle watched(world.mainBundle, [&](const QString &name) {
        if (!controller || name != QLatin1String("Application_Shared"))
            return;
        looked = true;
        EXPECT_EQ(controller->textMessageLabel->stringValue(), "Back at six.");
        EXPECT_EQ(controller->okButton->cornerRadius(), 3.0);
        EXPECT_THAT(lines("window title bar"), IsEmpty());
    });
    const NoticeServices services { .application = world.application,
        .runLoop = world.runLoop,
        .mainBundle = watched,
        .notificationCenter = world.notificationCenter,
        .makeGatewayClient = {},
        .printLine = {} };
    const auto storyboard = makeMainStoryboard(services);
    CustomAPPManager::payload = maintenanceMessage();
    controller = std::dynamic_pointer_cast<MaintenanceModeVC>(
        storyboard.instantiateControllerWithIdentifier(QStringLiteral("MaintenanceModeVC")));
    world.window.setContentViewController(controller);
    EXPECT_TRUE(looked);
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
