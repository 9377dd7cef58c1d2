#include "Support/Logger.h"
#include "Tests/Controllers/NoticeTest.h"

// What all five notices share, and which of them differ.

namespace {

struct NoticeRow {
    const char *identifier;
    Message message; ///< lets the payload's logo in
    const char *button;
    const char *logoFunction; ///< under whose name the logo's record stands
    bool hasBrandsHeader = true;
    bool stylesWindow = true;
    bool canAppearTransparent = false;
    bool countsDown = false;
    bool endsAtOnce = false; ///< on OK; the others a second later
    std::vector<std::string> onOk = {}; ///< between the window's hiding and the end
};

std::vector<NoticeRow> notices() {
    return {
        { .identifier = "MaintenanceModeVC",
            .message = maintenanceMessage().withResponse(QStringLiteral("<a/>")),
            .button = "okButton",
            .logoFunction = "setHeaderLogo()",
            .endsAtOnce = true },
        { .identifier = "ConcurrentSessionVC",
            .message = concurrentSessionMessage(),
            .button = "okButton",
            .logoFunction = "updateLabel()",
            .hasBrandsHeader = false,
            .endsAtOnce = true },
        { .identifier = "ReAuthHandlerVC",
            .message = reAuthMessage(),
            .button = "okayAction",
            .logoFunction = "setupUI()",
            .stylesWindow = false,
            .canAppearTransparent = true,
            .countsDown = true,
            .onOk = { "info [Controllers/ReAuthHandlerVC okayAction(_:)] "
                      "Sending Re-Auth Notification to Main App from Socket app",
                "post zelvik_webSocketToMainAppNotifier" } },
        // Deliberate: nothing is logged or posted, unlike in the re-authentication notice.
        { .identifier = "AutoDisconnectHandlerVC",
            .message = autoDisconnectMessage(),
            .button = "okayAction",
            .logoFunction = "setupUI()",
            .stylesWindow = false,
            .canAppearTransparent = true,
            .countsDown = true },
        { .identifier = "ViewController",
            .message = casbMessage().withTimeout(QStringLiteral("30")),
            .button = "okButton",
            .logoFunction = "parseWebSocketResponse()",
            .canAppearTransparent = true,
            .countsDown = true,
            .onOk = { "info [Controllers/ViewController postUrlOnCloseActivity(url:)] "
                      "Closing Active window , Calling Activity URL: https://gateway.example/closed?id=1",
                "request GET https://gateway.example/closed?id=1" } },
    };
}

class EveryNotice : public NoticeTest, public testing::WithParamInterface<std::size_t> {
protected:
    NoticeRow notice = notices()[GetParam()];

    std::shared_ptr<NoticeController> appear(const QVariantMap &message) {
        auto controller = world.appear<NoticeController>(notice.identifier, message);
        world.runLoop.settle();
        return controller;
    }
    std::shared_ptr<NoticeController> appear() { return appear(notice.message); }

    template <class View>
    static View &part(const NoticeController &controller, const char *name) {
        return *controller.view()->findChild<View *>(QString::fromLatin1(name));
    }
    static ImageView &logo(const NoticeController &controller) {
        return part<ImageView>(controller, "headerLogoImageView");
    }
    PushButton &button(const NoticeController &controller) const {
        return part<PushButton>(controller, notice.button);
    }
    std::optional<QColor> ownLogo() const {
        return notice.hasBrandsHeader ? std::optional(NoticeWorld::brandLogoColor()) : std::nullopt;
    }
    std::string logoRecord(qsizetype bytes) const {
        return std::string("info [Controllers/") + notice.identifier + ' ' + notice.logoFunction
            + "] Setting Logo from Zelvik Sase Client " + std::to_string(bytes) + " bytes";
    }

    /// The journal without what went to the log.
    std::vector<std::string> deeds() const {
        auto all = world.journal.lines();
        std::erase_if(all, [](const auto &line) {
            return line.starts_with("debug ") || line.starts_with("info ") || line.starts_with("error ");
        });
        return all;
    }
};

INSTANTIATE_TEST_SUITE_P(Notices, EveryNotice, testing::Range(std::size_t(0), notices().size()),
    [](const auto &parameter) { return std::string(notices()[parameter.param].identifier); });

} // namespace

// Style. Deliberate: the concurrent-session notice takes neither logo nor header colour from the brand.

TEST_P(EveryNotice, Style_HeaderGroundAndButton) {
    const auto controller = appear();
    EXPECT_EQ(logoColor(logo(*controller)), ownLogo());
    EXPECT_EQ(paintedColor(part<LayerView>(*controller, "headerView"), -2, 2),
        notice.hasBrandsHeader ? QColor(0x11, 0x22, 0x33) : accentColor);
    EXPECT_EQ(paintedColor(*controller->view(), 2, -2), QColor(Qt::white));
    EXPECT_EQ(button(*controller).layerBackgroundColor().rgba(), accentColor.rgba());
    EXPECT_EQ(paintedColor(button(*controller), 6, -4), accentColor);
    EXPECT_EQ(button(*controller).cornerRadius(), 3.0);
}

TEST_P(EveryNotice, Style_ABrandThatNamesNoImageAndNoColour) {
    auto settings = NoticeWorld::settings();
    settings.insert(QStringLiteral("globalAppViewBackgroundColor"), QStringLiteral("#FFF"));
    settings.insert(QStringLiteral("AppLogo"), QStringLiteral("nowhere"));
    world.files.setSettings(settings);
    const auto controller = appear();
    EXPECT_EQ(logoColor(logo(*controller)), std::nullopt);
    EXPECT_EQ(part<LayerView>(*controller, "headerView").layerBackgroundColor().rgb(),
        notice.hasBrandsHeader ? qRgb(128, 128, 128) : accentColor.rgb());
}

// Deliberate: one exact vendor word, and no vendor rule in the concurrent-session notice.
TEST_P(EveryNotice, Style_WindowBackgroundFollowsTheVendorInTwoNotices) {
    const bool hasVendorRule = notice.stylesWindow && notice.hasBrandsHeader;
    const struct {
        const char *vendor;
        bool isBlack;
    } rows[] { { "KORVANE", true }, { "korvane", false }, { "Korvane", false }, { " KORVANE", false },
        { "KORVANE ", false }, { "KORVANES", false }, { "", false } };
    for (const auto &row : rows) {
        world.files.setSettings(NoticeWorld::settings(QString::fromLatin1(row.vendor)));
        appear();
        if (!notice.stylesWindow) {
            EXPECT_THAT(lines("window title bar"), IsEmpty());
            EXPECT_THAT(lines("window background"), IsEmpty());
            continue;
        }
        EXPECT_THAT(lines("window title bar"), ElementsAre("window title bar transparent"));
        EXPECT_THAT(lines("window background"),
            ElementsAre(
                row.isBlack && hasVendorRule ? "window background #ff000000" : "window background #ff1e2234"))
            << row.vendor;
    }
}

TEST_P(EveryNotice, PayloadLogo_ReplacesTheOwnOrClearsItOrIsIgnored) {
    const auto image = logoBytes(payloadLogoColor);
    const struct {
        QVariant value;
        std::optional<QColor> shown;
        qsizetype loggedBytes;
    } rows[] { { image, payloadLogoColor, image.size() }, { QByteArray("no image"), std::nullopt, 8 },
        { QByteArray(""), std::nullopt, 0 }, { QStringLiteral("text"), ownLogo(), -1 }, { 5, ownLogo(), -1 },
        { true, ownLogo(), -1 } };
    for (const auto &row : rows) {
        const auto controller = appear(Message(notice.message).with("HeaderLogoImage", row.value));
        EXPECT_EQ(logoColor(logo(*controller)), row.shown);
        const auto prefix = logoRecord(0);
        const auto records = lines(prefix.substr(0, prefix.rfind("0 bytes")));
        if (row.loggedBytes < 0)
            EXPECT_THAT(records, IsEmpty());
        else
            EXPECT_THAT(records, ElementsAre(logoRecord(row.loggedBytes)));
    }
}

// Only a boolean true counts; two notices appear visible whatever it is.
TEST_P(EveryNotice, Appearing_IsTransparentForTheFlagInThreeNotices) {
    const std::pair<QVariant, bool> rows[] { { true, true }, { false, false },
        { QStringLiteral("true"), false }, { QByteArray("1"), false }, { QVariant(), false } };
    for (const auto &[value, isTrue] : rows) {
        appear(Message(notice.message).with("WebSocketType", value));
        const bool isTransparent = notice.canAppearTransparent && isTrue;
        ASSERT_FALSE(lines("window alpha").empty());
        EXPECT_EQ(lines("window alpha").front(), isTransparent ? "window alpha 0.0" : "window alpha 1.0");
    }
}

TEST_P(EveryNotice, Appearing_AsksNothingOfAnybodyAndOnlyACountdownRuns) {
    appear();
    EXPECT_EQ(world.runLoop.nextDeadline(), notice.countsDown ? std::optional(1s) : std::nullopt);
    EXPECT_TRUE(world.notificationCenter.posted().empty());
    EXPECT_EQ(world.gateway.clientsMade(), 0);
    EXPECT_THAT(world.application.terminations(), IsEmpty());
}

// OK

TEST_P(EveryNotice, Ok_HidesTheWindowAndEndsTheApplicationAtOnceOrASecondLater) {
    const auto controller = appear();
    world.journal.clear();
    bool wasSettled = false;
    world.journal.whenever({}, [&] { wasSettled = !world.application.settledEnds().empty(); });
    button(*controller).click();
    auto expected = notice.onOk;
    expected.insert(expected.begin(), "window alpha 0.0");
    if (!notice.endsAtOnce) {
        EXPECT_EQ(world.journal.lines(), expected);
        EXPECT_FALSE(wasSettled) << "the end is scheduled last";
        EXPECT_THAT(world.application.settledEnds(), ElementsAre(0s));
        world.runLoop.advance(1s - 1ms);
        EXPECT_THAT(world.application.terminations(), IsEmpty());
        world.runLoop.advance(1ms);
    }
    expected.push_back(std::string("terminate by ") + notice.identifier);
    EXPECT_EQ(world.journal.lines(), expected);
    ASSERT_EQ(world.application.terminations().size(), 1U);
    EXPECT_EQ(world.application.terminations()[0].sender, controller.get());
}

TEST_P(EveryNotice, Ok_LeavesTheCountdownRunning) {
    if (!notice.countsDown)
        return;
    const auto controller = appear();
    world.runLoop.advance(30s - 1ms);
    button(*controller).click();
    world.runLoop.advance(1ms);
    EXPECT_FALSE(button(*controller).isEnabled());
    EXPECT_EQ(world.window.alphaValue(), 0.0);
}

// Surroundings

TEST_P(EveryNotice, WithoutAWindow_EverythingElseHappens) {
    const auto inWindow = appear();
    button(*inWindow).click();
    world.runLoop.advance(40s);
    auto expected = deeds();
    std::erase_if(expected, [](const auto &line) { return line.starts_with("window "); });
    world.window.setContentViewController(nullptr);

    const auto controller = world.instantiate(notice.identifier, notice.message);
    world.journal.clear();
    controller->viewWillAppear();
    world.runLoop.settle();
    button(*controller).click();
    world.runLoop.advance(40s);
    EXPECT_EQ(deeds(), expected);
}

TEST_P(EveryNotice, WithoutALogger_EverythingElseHappens) {
    const auto message = Message(notice.message).withLogo(logoBytes(payloadLogoColor));
    appear(message);
    world.runLoop.advance(40s);
    const auto expected = deeds();
    Logger::adopt("no logger of this name");
    const auto controller = appear(message);
    world.runLoop.advance(40s);
    EXPECT_EQ(world.journal.lines(), expected);
    EXPECT_EQ(logoColor(logo(*controller)), payloadLogoColor);
}

TEST_P(EveryNotice, Replaced_LivesAsLongAsItsCountdown) {
    std::weak_ptr<NoticeController> controller = appear();
    world.window.setContentViewController(nullptr);
    EXPECT_EQ(!controller.expired(), notice.countsDown);
    world.journal.clear();
    world.runLoop.advance(40s);
    EXPECT_TRUE(controller.expired());
    EXPECT_THAT(lines("window"), IsEmpty());
    EXPECT_EQ(world.application.terminations().size(), notice.countsDown ? 1U : 0U);
}

TEST_P(EveryNotice, Replaced_KeepsNeitherLogoNorTextsOfItsMessage) {
    const auto controller = appear(Message(notice.message).withLogo(logoBytes(payloadLogoColor)));
    world.window.setContentViewController(nullptr);
    EXPECT_EQ(logoColor(logo(*controller)), std::nullopt);
    const auto labels = controller->view()->findChildren<TextField *>();
    for (const auto *label : labels)
        EXPECT_EQ(label->stringValue(), "");
}
