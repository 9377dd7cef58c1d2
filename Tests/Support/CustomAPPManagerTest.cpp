#include "Support/CustomAPPManager.h"

#include "Tests/Platform/PrintQt.h"
#include "Tests/Platform/RawBundle.h"

#include <QDateTime>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>

namespace {

constexpr std::array everySetting { &CustomAPPManager::AppLogo, &CustomAPPManager::Vendor,
    &CustomAPPManager::LogFolderName, &CustomAPPManager::globalAppViewBackgroundColor,
    &CustomAPPManager::logFilePath };

class Settings : public testing::Test {
protected:
    Settings() {
        for (auto *setting : everySetting)
            setting->clear();
    }

    void load(const QByteArray &file) {
        bundle_.writeResource(QStringLiteral("Application_Shared.plist"), file);
        load();
    }
    void load() { CustomAPPManager::loadSettings(bundle_.open()); }

    static QStringList all() {
        QStringList values;
        for (const auto *setting : everySetting)
            values.append(*setting);
        return values;
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

// In a process of its own, in which nothing has been loaded.
TEST(SettingsDeathTest, TheyAndThePayloadAreEmptyAtFirst) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::_Exit(CustomAPPManager::payload.isEmpty()
                            && std::all_of(everySetting.begin(), everySetting.end(),
                                [](const QString *setting) { return setting->isEmpty(); })
                        ? 0
                        : 1),
        testing::ExitedWithCode(0), "");
}

TEST_F(Settings, ComeFromTheFile) {
    load(brand_);
    EXPECT_EQ(all(), branded_);
}

TEST_F(Settings, AnEmptyDictionaryGivesEveryDefault) {
    load(entries(""));
    EXPECT_EQ(all(), defaults_);
}

TEST_F(Settings, AnEmptyStringIsAString) {
    load(entries("<key>AppLogo</key><string></string><key>Vendor</key><string/>"
                 "<key>LogFolderName</key><string></string>"
                 "<key>globalAppViewBackgroundColor</key><string></string>"));
    auto expected = empty_;
    expected[4] = QStringLiteral("/private/var/log//_Tevanic.log");
    EXPECT_EQ(all(), expected);
}

TEST_F(Settings, OneOfAnotherTypeTakesItsDefault) {
    for (const char *value : { "<integer>5</integer>", "<true/>", "<data>YWNtZQ==</data>",
             "<array><string>acme</string></array>" }) {
        QByteArray inner;
        for (const char *key : { "AppLogo", "Vendor", "LogFolderName", "globalAppViewBackgroundColor" })
            inner += QByteArray("<key>") + key + "</key>" + value;
        load(entries(inner));
        EXPECT_EQ(all(), defaults_) << value;
    }
}

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

const std::vector<ReaderRow> values {
    { .name = "True", .value = true, .flag = true },
    { .name = "False", .value = false },
    { .name = "StringTrue", .value = QStringLiteral("true"), .string = QStringLiteral("true") },
    { .name = "Data", .value = QByteArray("\0\xff", 2), .data = QByteArray("\0\xff", 2) },
    { .name = "EmptyData", .value = QByteArray(), .data = QByteArray() },
    { .name = "IntegerOne", .value = 1 },
    { .name = "Date", .value = QDateTime::currentDateTimeUtc() },
    { .name = "List", .value = QVariantList { true, QStringLiteral("a") } },
    { .name = "Invalid", .value = QVariant() },
};

TEST(PayloadReaders, AskForTheTypeAndConvertNothing) {
    for (const auto &row : values) {
        SCOPED_TRACE(row.name);
        CustomAPPManager::payload = { { CustomAPPManager::WebSocketType, row.value } };
        EXPECT_EQ(CustomAPPManager::flag(CustomAPPManager::WebSocketType), row.flag);
        EXPECT_EQ(CustomAPPManager::optionalString(CustomAPPManager::WebSocketType), row.string);
        EXPECT_EQ(CustomAPPManager::string(CustomAPPManager::WebSocketType), row.string.value_or(QString()));
        EXPECT_EQ(CustomAPPManager::data(CustomAPPManager::WebSocketType), row.data);
    }
}

} // namespace
