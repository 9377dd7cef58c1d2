#include "Support/CustomAPPManager.h"

#include "Tests/Platform/PrintQt.h"
#include "Tests/Platform/RawBundle.h"

#include <QDateTime>
#include <QUrl>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

namespace {

class Settings : public testing::Test {
protected:
    Settings() {
        for (auto *setting :
            { &CustomAPPManager::AppLogo, &CustomAPPManager::Vendor, &CustomAPPManager::LogFolderName,
                &CustomAPPManager::globalAppViewBackgroundColor, &CustomAPPManager::logFilePath })
            setting->clear();
    }

    void load(const QByteArray &file) {
        bundle_.writeResource(QStringLiteral("Application_Shared.plist"), file);
        load();
    }
    void load() { CustomAPPManager::loadSettings(bundle_.open()); }

    static QStringList all() {
        return { CustomAPPManager::AppLogo, CustomAPPManager::Vendor, CustomAPPManager::LogFolderName,
            CustomAPPManager::globalAppViewBackgroundColor, CustomAPPManager::logFilePath };
    }
    static QByteArray entries(const QByteArray &inner) {
        return RawBundle::propertyList("<dict>" + inner + "</dict>");
    }

    const QStringList empty_ { {}, {}, {}, {}, {} };
    const QStringList defaults_ { QStringLiteral("ic_zelvikLogo"), QStringLiteral("zelvik"),
        QStringLiteral("zelvik"), QStringLiteral("#2A292F"),
        QStringLiteral("/private/var/log/zelvik/zelvik_Tevanic.log") };
    const QByteArray brand_ = entries("<key>AppLogo</key><string>logo</string>"
                                      "<key>Vendor</key><string>KORVANE</string>"
                                      "<key>LogFolderName</key><string>acme</string>"
                                      "<key>globalAppViewBackgroundColor</key><string>#010203</string>");
    const QStringList branded_ { QStringLiteral("logo"), QStringLiteral("KORVANE"), QStringLiteral("acme"),
        QStringLiteral("#010203"), QStringLiteral("/private/var/log/acme/acme_Tevanic.log") };

    RawBundle bundle_;
};

TEST_F(Settings, AreEmptyBeforeTheFirstLoad) {
    EXPECT_EQ(all(), empty_);
}

TEST_F(Settings, ComeFromTheFile) {
    load(brand_);
    EXPECT_EQ(all(), branded_);
}

TEST_F(Settings, AnEmptyDictionaryGivesEveryDefault) {
    load(entries(""));
    EXPECT_EQ(all(), defaults_);
}

TEST_F(Settings, AMissingKeyTakesItsOwnDefault) {
    load(entries("<key>LogFolderName</key><string>acme</string>"));
    auto expected = defaults_;
    expected[2] = QStringLiteral("acme");
    expected[4] = QStringLiteral("/private/var/log/acme/acme_Tevanic.log");
    EXPECT_EQ(all(), expected);
}

TEST_F(Settings, AnEmptyStringIsAString) {
    load(entries("<key>AppLogo</key><string></string><key>Vendor</key><string/>"
                 "<key>LogFolderName</key><string></string>"
                 "<key>globalAppViewBackgroundColor</key><string></string>"));
    auto expected = empty_;
    expected[4] = QStringLiteral("/private/var/log//_Tevanic.log");
    EXPECT_EQ(all(), expected);
}

TEST_F(Settings, KeysOfAnotherCaseAreOtherKeys) {
    load(entries("<key>vendor</key><string>x</string><key>applogo</key><string>x</string>"));
    EXPECT_EQ(all(), defaults_);
}

TEST_F(Settings, TextsKeepTheirCharacters) {
    load(entries("<key>Vendor</key><string> A&amp;B \xc3\xa9\xf0\x9f\x94\x92 </string>"));
    EXPECT_EQ(CustomAPPManager::Vendor, QStringLiteral(u" A&B é\U0001f512 "));
}

class SettingOfAnotherType : public Settings, public testing::WithParamInterface<const char *> { };

TEST_P(SettingOfAnotherType, TakesItsDefault) {
    QByteArray inner;
    for (const char *key : { "AppLogo", "Vendor", "LogFolderName", "globalAppViewBackgroundColor" })
        inner += QByteArray("<key>") + key + "</key>" + GetParam();
    load(entries(inner));
    EXPECT_EQ(all(), defaults_);
}

INSTANTIATE_TEST_SUITE_P(Values, SettingOfAnotherType,
    testing::Values(
        "<integer>5</integer>", "<true/>", "<data>YWNtZQ==</data>", "<array><string>acme</string></array>"));

TEST_F(Settings, AReloadTakesWhatTheFileSaysNow) {
    load(brand_);
    load(entries("<key>Vendor</key><string>other</string>"));
    auto expected = defaults_;
    expected[1] = QStringLiteral("other");
    EXPECT_EQ(all(), expected);
}

TEST_F(Settings, WithoutAFileTheyStayEmpty) {
    load();
    EXPECT_EQ(all(), empty_);
}

TEST_F(Settings, AFileThatIsGoneAtAReloadChangesNothing) {
    load(brand_);
    QFile::remove(bundle_.resource(QStringLiteral("Application_Shared.plist")));
    load();
    EXPECT_EQ(all(), branded_);
}

TEST_F(Settings, AFileThatIsNoDictionaryChangesNothing) {
    load(brand_);
    for (const auto &file :
        { QByteArray("no property list"), RawBundle::propertyList("<string>Vendor</string>") }) {
        load(file);
        EXPECT_EQ(all(), branded_);
    }
}

struct ReaderRow {
    const char *name;
    QVariant value;
    bool flag = false;
    std::optional<QString> string = {};
    std::optional<QByteArray> data = {};
};

void PrintTo(const ReaderRow &row, std::ostream *stream) {
    *stream << row.name;
}

class PayloadReaders : public testing::TestWithParam<ReaderRow> { };

TEST_P(PayloadReaders, AskForTheTypeAndConvertNothing) {
    const auto &row = GetParam();
    CustomAPPManager::payload = { { CustomAPPManager::WebSocketType, row.value } };
    EXPECT_EQ(CustomAPPManager::flag(CustomAPPManager::WebSocketType), row.flag);
    EXPECT_EQ(CustomAPPManager::optionalString(CustomAPPManager::WebSocketType), row.string);
    EXPECT_EQ(CustomAPPManager::string(CustomAPPManager::WebSocketType), row.string.value_or(QString()));
    EXPECT_EQ(CustomAPPManager::data(CustomAPPManager::WebSocketType), row.data);
}

const std::vector<ReaderRow> values {
    { .name = "True", .value = true, .flag = true },
    { .name = "False", .value = false },
    { .name = "StringTrue", .value = QStringLiteral("true"), .string = QStringLiteral("true") },
    { .name = "StringOne", .value = QStringLiteral("1"), .string = QStringLiteral("1") },
    { .name = "EmptyString", .value = QString(), .string = QString() },
    { .name = "StringWithNul",
        .value = QString(u'a') + QChar(u'\0') + u'b',
        .string = QString(u'a') + QChar(u'\0') + u'b' },
    { .name = "Data", .value = QByteArray("\0\xff", 2), .data = QByteArray("\0\xff", 2) },
    { .name = "EmptyData", .value = QByteArray(), .data = QByteArray() },
    { .name = "IntegerOne", .value = 1 },
    { .name = "UnsignedOne", .value = 1U },
    { .name = "LongOne", .value = qlonglong(1) },
    { .name = "UnsignedLongOne", .value = qulonglong(1) },
    { .name = "ShortOne", .value = QVariant::fromValue<short>(1) },
    { .name = "CharacterOne", .value = QVariant::fromValue<signed char>(1) },
    { .name = "DoubleOne", .value = 1.0 },
    { .name = "FloatOne", .value = 1.0F },
    { .name = "Date", .value = QDateTime::currentDateTimeUtc() },
    { .name = "Character", .value = QChar(u'a') },
    { .name = "Address", .value = QUrl(QStringLiteral("http://a")) },
    { .name = "List", .value = QVariantList { true, QStringLiteral("a") } },
    { .name = "StringList", .value = QStringList { QStringLiteral("a") } },
    { .name = "Dictionary", .value = QVariantMap { { QStringLiteral("a"), true } } },
    { .name = "Null", .value = QVariant::fromValue(nullptr) },
    { .name = "Invalid", .value = QVariant() },
};
INSTANTIATE_TEST_SUITE_P(
    Values, PayloadReaders, testing::ValuesIn(values), [](const auto &row) { return row.param.name; });

TEST(Payload, IsEmptyInTheBeginningAndEveryReaderGivesItsDefault) {
    CustomAPPManager::payload.clear();
    EXPECT_FALSE(CustomAPPManager::flag(CustomAPPManager::AutoDisconnectVPNStatus));
    EXPECT_EQ(CustomAPPManager::string(CustomAPPManager::webSocketResponse), QString());
    EXPECT_EQ(CustomAPPManager::optionalString(CustomAPPManager::webSocketResponse), std::nullopt);
    EXPECT_EQ(CustomAPPManager::data(CustomAPPManager::HeaderLogoImage), std::nullopt);
}

TEST(Payload, KeysHaveTheirSpellings) {
    EXPECT_EQ(CustomAPPManager::webSocketResponse, QLatin1String("webSocketResponse"));
    EXPECT_EQ(CustomAPPManager::MaintenanceMessageKey, QLatin1String("MaintenanceMessageKey"));
    EXPECT_EQ(CustomAPPManager::HeaderLogoImage, QLatin1String("HeaderLogoImage"));
    EXPECT_EQ(CustomAPPManager::WebSocketType, QLatin1String("WebSocketType"));
    EXPECT_EQ(CustomAPPManager::WebSocketAdminDisconnect, QLatin1String("WebSocketAdminDisconnect"));
    EXPECT_EQ(CustomAPPManager::AutoDisconnectWebSocketType, QLatin1String("AutoDisconnectWebSocketType"));
    EXPECT_EQ(CustomAPPManager::AutoDisconnectMessageKey, QLatin1String("AutoDisconnectMessageKey"));
    EXPECT_EQ(CustomAPPManager::AutoDisconnectVPNStatus, QLatin1String("AutoDisconnectVPNStatus"));
    EXPECT_EQ(CustomAPPManager::webSocketappLanguageKey, QLatin1String("webSocketappLanguageKey"));
    EXPECT_EQ(CustomAPPManager::WebSocketReAuthType, QLatin1String("WebSocketReAuthType"));
}

TEST(Manager, ThereIsOneInstance) {
    const CustomAPPManager *elsewhere = nullptr;
    std::thread([&elsewhere] { elsewhere = &CustomAPPManager::sharedInstance(); }).join();
    EXPECT_EQ(&CustomAPPManager::sharedInstance(), elsewhere);
}

TEST(Manager, TheAccentColorIsFixed) {
    const auto &color = CustomAPPManager::noticeAccentColor();
    EXPECT_EQ(color, QColor(30, 34, 52));
    EXPECT_EQ(color.alphaF(), 1.0F);
    EXPECT_EQ(&color, &CustomAPPManager::noticeAccentColor());
}

TEST(Manager, TheNotifierNameIsFixedAtItsFirstUse) {
    CustomAPPManager::Vendor = QStringLiteral("KORVANE");
    EXPECT_EQ(CustomAPPManager::mainAppNotifierName(), QStringLiteral("KORVANE_webSocketToMainAppNotifier"));
    CustomAPPManager::Vendor = QStringLiteral("other");
    EXPECT_EQ(CustomAPPManager::mainAppNotifierName(), QStringLiteral("KORVANE_webSocketToMainAppNotifier"));
}

} // namespace
