#include "Controllers/AppDelegate.h"

#include "Controllers/MainStoryboard.h"
#include "Support/CustomAPPManager.h"
#include "Support/Logger.h"
#include "Tests/Controllers/NoticeTest.h"

#include <limits>

namespace {

std::string handlerLine(const char *level, const std::string &text) {
    return std::string(level) + " [Controllers/AppDelegate setRootVCForSocketMessageType(sender:)] " + text;
}

std::string infoLine(const char *function, const std::string &text) {
    return std::string("info [Controllers/AppDelegate ") + function + "] " + text;
}

std::string timeOutLine(const std::string &text) {
    return "debug [Controllers/AppDelegate TerminateAppBasedOnTimeOut()] " + text;
}

const std::string initiatingTimer = infoLine(
    "applicationDidFinishLaunching(_:)", "Initiating a Timer to Terminate the application automatically.");

/// Launches without a settings file. The log is recorded from the moment of the registration on.
void launchWithoutSettings(NoticeWorld &world) {
    world.files.removeSettings();
    world.application.setDelegate(&world.delegate);
    world.journal.whenever(QStringLiteral("observe"), [&world] { world.log.attachToCurrentLogger(); });
    world.delegate.applicationDidFinishLaunching();
}

using AppDelegateTest = NoticeTest;

} // namespace

// Launch

TEST_F(AppDelegateTest, Launch_ObservesThenLogsThenArmsTheTimer) {
    bool armedBeforeItsRecord = true;
    world.journal.whenever(
        QStringLiteral("debug"), [&] { armedBeforeItsRecord = world.runLoop.nextDeadline().has_value(); });
    launchWithoutSettings(world);
    EXPECT_THAT(world.journal.lines(),
        ElementsAre("observe _socketMessageNotifier", initiatingTimer,
            timeOutLine("Default APP Termination Time is set to 120")));
    EXPECT_FALSE(armedBeforeItsRecord);
    EXPECT_EQ(world.runLoop.nextDeadline(), 120s);
}

TEST_F(AppDelegateTest, Launch_LetsGoOfEveryLoggerOfBefore) {
    const std::weak_ptr<spdlog::logger> before = Logger::current();
    Logger::setUp({}, "another");
    ASSERT_FALSE(before.expired());
    launchWithoutSettings(world);
    EXPECT_TRUE(before.expired());
    EXPECT_NE(Logger::current(), nullptr);
    Logger::adopt("another");
    EXPECT_EQ(Logger::current(), nullptr);
}

TEST_F(AppDelegateTest, Launch_WithoutSettingsHasNoPrefixAndALoggerWithoutAFile) {
    launchWithoutSettings(world);
    EXPECT_EQ(world.notificationCenter.observedNames(), QStringList { "_socketMessageNotifier" });
    EXPECT_EQ(CustomAPPManager::logFilePath, "");
    ASSERT_NE(Logger::current(), nullptr);
    world.receive(reAuthMessage());
    EXPECT_EQ(world.window.content(), "ReAuthHandlerVC");
}

TEST_F(AppDelegateTest, SecureRestorableStateIsSupported) {
    EXPECT_TRUE(world.delegate.applicationSupportsSecureRestorableState());
}

// The end

TEST_F(AppDelegateTest, TimeOut_EndsTheApplicationWhenItIsUp) {
    const struct {
        QVariant value;
        qint64 seconds;
    } rows[] {
        { QVariant(), 120 },
        { 30, 30 },
        { 1, 1 },
        { 86400, 86400 },
        { 4000000, 4000000 }, // past a 32-bit count of milliseconds
        { QStringLiteral("30"), 120 },
        { true, 120 },
        { 30.0, 120 },
        { 18446744073709551615ULL, 120 },
    };
    for (const auto &row : rows) {
        NoticeWorld each;
        if (row.value.isValid())
            each.files.setInfo({ { QStringLiteral("Default_App_Timeout"), row.value } });
        launchWithoutSettings(each);

        EXPECT_EQ(each.application.endsBy(), std::chrono::seconds(row.seconds)) << "also when it hangs";
        const auto number = std::to_string(row.seconds);
        EXPECT_EQ(
            each.journal.lines().back(), timeOutLine("Default APP Termination Time is set to " + number));
        each.journal.clear();
        each.runLoop.advance(std::chrono::seconds(row.seconds) - 1ms);
        EXPECT_THAT(each.journal.lines(), IsEmpty());
        each.runLoop.advance(1ms);
        EXPECT_THAT(each.journal.lines(),
            ElementsAre(timeOutLine("Terminating Web Socket App after " + number + " Seconds."),
                "terminate by AppDelegate", "unobserve _socketMessageNotifier"));
        ASSERT_EQ(each.application.terminations().size(), 1U);
        EXPECT_EQ(each.application.terminations()[0].sender, &each.delegate);
        EXPECT_EQ(each.runLoop.nextDeadline(), std::nullopt);
    }
}

TEST_F(AppDelegateTest, TimeOut_OfZeroOrLessEndsTheApplicationRightAfterTheLaunch) {
    for (const qint64 value : { qint64(0), qint64(-5), std::numeric_limits<qint64>::min() }) {
        NoticeWorld each;
        each.files.setInfo({ { QStringLiteral("Default_App_Timeout"), value } });
        launchWithoutSettings(each);
        EXPECT_THAT(each.application.terminations(), IsEmpty()); // not within the launch
        each.runLoop.advance(1ms);
        EXPECT_EQ(each.application.terminations().size(), 1U);
        EXPECT_THAT(each.journal.lines(),
            testing::Contains(
                timeOutLine("Terminating Web Socket App after " + std::to_string(value) + " Seconds.")));
    }
}

TEST_F(AppDelegateTest, TimeOut_TheLongestIsNotUpInFiftyYears) {
    world.files.setInfo({ { QStringLiteral("Default_App_Timeout"), std::numeric_limits<qint64>::max() } });
    launchWithoutSettings(world);
    EXPECT_EQ(world.journal.lines().back(),
        timeOutLine("Default APP Termination Time is set to 9223372036854775807"));
    world.runLoop.advance(24h * 365 * 50);
    EXPECT_THAT(world.application.terminations(), IsEmpty());
}

TEST_F(AppDelegateTest, EndIsSettled_GivesBackTheNamesAndListensOn) {
    launchWithoutSettings(world);
    world.journal.clear();
    world.delegate.applicationEndIsSettled();
    EXPECT_THAT(world.journal.lines(), ElementsAre("give back names"));
    world.receive(maintenanceMessage());
    EXPECT_EQ(world.window.content(), "MaintenanceModeVC");
}

TEST_F(AppDelegateTest, WillTerminate_EndsTheObservationUnderTheNameOfTheLaunch) {
    launchWithoutSettings(world);
    // Another name by now, which neither moves the observation nor confuses its end.
    world.files.setSettings(NoticeWorld::settings());
    world.receive(maintenanceMessage());
    ASSERT_EQ(CustomAPPManager::LogFolderName, "zelvik");
    EXPECT_EQ(world.notificationCenter.observedNames(), QStringList { "_socketMessageNotifier" });
    world.delegate.applicationWillTerminate();
    EXPECT_TRUE(world.notificationCenter.observedNames().isEmpty());
}

// A message

TEST_F(AppDelegateTest, Message_ReloadsSettingsThenLogsThenReplacesThePayloadThenSwitchesTheLanguage) {
    world.launch();
    world.files.addStrings(QStringLiteral("en"), { { "Attention", "English" } });
    world.files.addStrings(QStringLiteral("de"), { { "Attention", "German" } });
    world.receive(emptyMessage().with("old", 1).withLanguage(QStringLiteral("de")));
    world.files.setSettings(NoticeWorld::settings(QStringLiteral("reloaded")));
    std::vector<std::string> states; // at each record
    world.journal.whenever(QString(), [&] {
        states.push_back(CustomAPPManager::Vendor.toStdString()
            + (CustomAPPManager::payload.contains(QStringLiteral("old")) ? " old " : " new ")
            + world.mainBundle.localizedStringForKey(QStringLiteral("Attention"), {}, {}).toStdString());
    });
    world.receive(maintenanceMessage().with("new", 1));
    ASSERT_GE(states.size(), 4U);
    states.resize(4);
    EXPECT_THAT(states,
        ElementsAre(
            "reloaded old German", "reloaded old German", "reloaded new German", "reloaded new English"));
}

TEST_F(AppDelegateTest, Message_UserInfoIsLoggedAndReplacesThePayload) {
    world.launch();
    const std::pair<std::optional<QVariantMap>, std::string> rows[] {
        { QVariantMap(), "{}" },
        { std::nullopt, "nil" },
    };
    for (const auto &[userInfo, text] : rows) {
        CustomAPPManager::payload = emptyMessage().with("old", 1);
        world.journal.clear();
        world.delegate.setRootVCForSocketMessageType({ QStringLiteral("any"), {}, userInfo });
        EXPECT_THAT(world.journal.lines(),
            ElementsAre(handlerLine("info", "Message received from Main APP."),
                // The line feed and the blank behind it are part of the text.
                handlerLine("debug", "Message from Sase Client APP: \n " + text),
                handlerLine("info", "Bundle Language View en")));
        EXPECT_EQ(CustomAPPManager::payload, userInfo.value_or(QVariantMap()));
    }
}

TEST_F(AppDelegateTest, Message_WithoutFlagsAndResponseReplacesPayloadAndLanguageAndShowsNothing) {
    world.launch();
    world.files.addStrings(QStringLiteral("de"), { { "Attention", "German" } });
    world.receive(reAuthMessage());
    const auto content = world.window.contentViewController();
    for (const QVariant &response :
        { QVariant(), QVariant(5), QVariant(true), QVariant(QByteArray("<a/>")) }) {
        auto message = emptyMessage().withLanguage(QStringLiteral("de"));
        if (response.isValid())
            message.with("webSocketResponse", response);
        world.journal.clear();
        world.receive(message);
        EXPECT_EQ(world.journal.lines().back(), handlerLine("info", "Bundle Language View de"));
        EXPECT_THAT(lines("window"), IsEmpty());
        EXPECT_EQ(world.window.contentViewController(), content);
        EXPECT_EQ(CustomAPPManager::payload, QVariantMap(message));
        EXPECT_EQ(world.mainBundle.localizedStringForKey(QStringLiteral("Attention"), {}, {}), "German");
    }
    EXPECT_THAT(world.application.terminations(), IsEmpty());
}

// Language

TEST_F(AppDelegateTest, Language_IsTheMessagesOrEnglish) {
    world.files.addStrings(QStringLiteral("en"), { { "Attention", "English" } });
    world.files.addStrings(QStringLiteral("fr"), { { "Attention", "French" } });
    world.files.addStrings(QStringLiteral("it"), { { "Attention", "Italian" } });
    world.files.setPreferredLanguages({ QStringLiteral("it") });
    world.launch();
    const auto attention
        = [this] { return world.mainBundle.localizedStringForKey(QStringLiteral("Attention"), {}, {}); };
    EXPECT_EQ(attention(), "Italian"); // the user's own before the first message

    const struct {
        QVariant language;
        const char *code;
        const char *text;
    } rows[] {
        { QStringLiteral("fr"), "fr", "French" },
        { QVariant(), "en", "English" }, // neither the one of before nor the user's own
        { 5, "en", "English" }, { true, "en", "English" },
        { QStringLiteral("xx"), "xx", "Italian" }, // no such folder: the user's own
    };
    for (const auto &row : rows) {
        auto message = maintenanceMessage();
        if (row.language.isValid())
            message.with("webSocketappLanguageKey", row.language);
        world.journal.clear();
        world.receive(message);
        EXPECT_EQ(count(handlerLine("info", std::string("Bundle Language View ") + row.code)), 1) << row.code;
        EXPECT_EQ(attention(), row.text) << row.code;
    }
}

// Routing

TEST_F(AppDelegateTest, Routing_TheFirstTrueFlagCountsInTheFixedOrder) {
    const char *flags[] { "WebSocketType", "AutoDisconnectWebSocketType", "WebSocketReAuthType",
        "WebSocketAdminDisconnect" };
    const char *contents[] { "MaintenanceModeVC", "AutoDisconnectHandlerVC", "ReAuthHandlerVC",
        "ConcurrentSessionVC", "ViewController" };
    world.launch();
    for (unsigned set = 0; set < 16; ++set) {
        // With a flag the response need not be XML.
        auto message
            = emptyMessage().withResponse(set == 0 ? casbMessage().document() : QStringLiteral("<no XML"));
        unsigned first = 4;
        for (unsigned flag = 4; flag-- > 0;) {
            const bool isSet = (set >> flag) & 1U;
            message.with(flags[flag], isSet); // a false one is as good as none
            if (isSet)
                first = flag;
        }
        world.journal.clear();
        world.receive(message);
        EXPECT_EQ(world.window.content(), contents[first]) << set;
        EXPECT_EQ(lines("window content").size(), 1U) << set;
        EXPECT_EQ(lines(handlerLine("info", "Initiating ")).size(), 1U) << set;
    }
}

TEST_F(AppDelegateTest, Casb_TextThatIsNoXmlIsAnErrorAndEndsTheApplicationWithoutAWindow) {
    for (const char *text : { "", "plain text", "<a>" }) {
        NoticeWorld each;
        each.launch();
        each.receive(emptyMessage().withResponse(QString::fromLatin1(text)));
        const auto &all = each.journal.lines();
        ASSERT_GE(all.size(), 4U);
        EXPECT_THAT(std::vector(all.begin() + 2, all.end()),
            ElementsAre(handlerLine("info", "Bundle Language View en"),
                handlerLine("error", std::string("Unable to parse xml string : ") + text),
                "terminate by AppDelegate", "unobserve _socketMessageNotifier"))
            << text;
        EXPECT_EQ(each.application.terminations()[0].sender, &each.delegate);
    }
}

// Installing

TEST_F(AppDelegateTest, Install_WithoutAWindowDropsTheNoticeBehindItsRecord) {
    world.launch();
    world.application.setWindows({});
    std::weak_ptr<NoticeController> made;
    const auto forms = makeMainStoryboard(world.services);
    world.storyboard.addScene(QStringLiteral("ReAuthHandlerVC"), [&] {
        auto controller = forms.instantiateControllerWithIdentifier(QStringLiteral("ReAuthHandlerVC"));
        world.journal.add(QStringLiteral("instantiate"));
        made = controller;
        return controller;
    });
    world.receive(reAuthMessage());
    const auto &all = world.journal.lines();
    ASSERT_EQ(all.size(), 6U);
    EXPECT_EQ(
        all[4], infoLine("intializeReAuthVC()", "CASB Socket Notification Type : CASB Mode Notification..."));
    EXPECT_EQ(all[5], "instantiate");
    EXPECT_TRUE(made.expired());
    EXPECT_EQ(world.runLoop.nextDeadline(), 120s); // the application's own alone
}

TEST_F(AppDelegateTest, Install_UsesTheFirstWindow) {
    world.launch();
    FakeNoticeWindow other(world.journal, QStringLiteral("other"));
    world.application.setWindows({ &world.window, &other });
    world.receive(maintenanceMessage());
    EXPECT_EQ(world.window.content(), "MaintenanceModeVC");
    EXPECT_THAT(lines("other"), IsEmpty());
}

TEST_F(AppDelegateTest, Install_AControllerThatIsInAWindowAlreadyHasThatOneShownFirst) {
    world.launch();
    FakeNoticeWindow other(world.journal, QStringLiteral("other"));
    CustomAPPManager::payload = reAuthMessage();
    const auto controller
        = world.storyboard.instantiateControllerWithIdentifier(QStringLiteral("ReAuthHandlerVC"));
    other.setContentViewController(controller);
    world.storyboard.addScene(QStringLiteral("ReAuthHandlerVC"), [&] { return controller; });
    world.journal.clear();
    world.delegate.intializeReAuthVC();
    const auto &all = world.journal.lines();
    ASSERT_GE(all.size(), 3U);
    EXPECT_EQ(all[1], "other alpha 1.0");
    EXPECT_EQ(all[2], "window level 3");
}

// Fatal stops

namespace {

/// Receives the notice's message over a storyboard whose one scene is another's, or is lacking.
[[noreturn]] void receiveWithout(const char *identifier, const char *instead) {
    NoticeWorld world;
    Storyboard storyboard(world.mainBundle, QStringLiteral("Main"));
    if (instead)
        storyboard.addScene(QString::fromLatin1(identifier), [&world, instead] {
            return world.storyboard.instantiateControllerWithIdentifier(QString::fromLatin1(instead));
        });
    AppDelegate delegate(
        world.application, world.runLoop, world.mainBundle, storyboard, world.notificationCenter);
    // Without a window too: the controller comes first.
    world.application.setWindows({});
    delegate.setRootVCForSocketMessageType({ {}, {}, QVariantMap(messageFor(identifier)) });
    std::_Exit(0);
}

} // namespace

TEST(AppDelegateDeathTest, Install_ASceneThatIsMissingOrOfAnotherClassStopsTheProcess) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const std::pair<const char *, const char *> scenes[] {
        { "MaintenanceModeVC", "ConcurrentSessionVC" },
        { "AutoDisconnectHandlerVC", "ReAuthHandlerVC" },
        { "ReAuthHandlerVC", "AutoDisconnectHandlerVC" },
        { "ConcurrentSessionVC", "MaintenanceModeVC" },
        { "ViewController", "MaintenanceModeVC" },
    };
    for (const auto &[identifier, instead] : scenes) {
        const auto scene = std::string("\"") + identifier + "\"";
        EXPECT_EXIT(receiveWithout(identifier, nullptr), testing::KilledBySignal(SIGABRT),
            "NoticeAgent: fatal: .*\"Main\".*" + scene);
        EXPECT_EXIT(receiveWithout(identifier, instead), testing::KilledBySignal(SIGABRT),
            "NoticeAgent: fatal: .*" + scene + ".*another class");
    }
}
