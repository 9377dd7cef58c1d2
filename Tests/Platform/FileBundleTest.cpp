#include "Platform/Qt/FileBundle.h"

#include "Tests/Platform/PrintQt.h"
#include "Tests/Platform/RawBundle.h"

#include <gtest/gtest.h>

namespace {

QString text(const Bundle &bundle, const QString &key = QStringLiteral("key"), const QString &value = {},
    const QString &table = {}) {
    return bundle.localizedStringForKey(key, value, table);
}

class FileBundleTest : public testing::Test {
protected:
    /// Language folders whose one text is their own code.
    void addLanguages(const QStringList &codes) {
        for (const auto &code : codes)
            bundle_.writeTable(code, "\"key\" = \"" + code.toUtf8() + "\";");
    }
    void setDevelopmentRegion(const QByteArray &code) {
        bundle_.writeInformation("<key>CFBundleDevelopmentRegion</key><string>" + code + "</string>");
    }
    QString languageFor(const QStringList &preferred) const {
        const auto bundle = bundle_.open(preferred);
        EXPECT_EQ(bundle.localization(), text(bundle) == QLatin1String("key") ? QString() : text(bundle));
        return bundle.localization();
    }

    RawBundle bundle_;
};

struct LanguageRow {
    const char *name;
    QStringList preferred;
    QStringList folders;
    QString chosen; ///< empty for none
};

const std::vector<LanguageRow> languages {
    { "ExactCode", { "de" }, { "en", "de" }, "de" },
    { "ExactCodeWithRegion", { "pt-BR" }, { "pt", "pt-BR", "pt-PT" }, "pt-BR" },
    { "RegionFallsBackToTheLanguage", { "de-AT" }, { "en", "de" }, "de" },
    { "UnderscoreFallsBackToTheLanguage", { "de_AT" }, { "en", "de" }, "de" },
    { "OtherRegionIsNotTheSameLanguage", { "pt-BR" }, { "pt-PT" }, "" },
    { "ChineseOfChinaIsSimplified", { "zh-CN" }, { "zh-Hant", "zh-Hans" }, "zh-Hans" },
    { "ChineseInTheSystemsForm", { "zh_CN" }, { "zh-Hant", "zh-Hans" }, "zh-Hans" },
    { "ChineseOfTaiwanIsTraditional", { "zh-TW" }, { "zh-Hans", "zh-Hant" }, "zh-Hant" },
    { "ChineseOfHongKongIsTraditional", { "zh-HK" }, { "zh-Hans", "zh-Hant" }, "zh-Hant" },
    { "ChineseOfSingaporeIsSimplified", { "zh-SG" }, { "zh-Hant", "zh-Hans" }, "zh-Hans" },
    { "ScriptWithRegion", { "zh-Hans-CN" }, { "zh", "zh-Hans" }, "zh-Hans" },
    { "ScriptBeforeLanguage", { "sr-Latn-RS" }, { "sr", "sr-Latn" }, "sr-Latn" },
    { "LanguageWhereTheScriptIsMissing", { "zh-CN" }, { "zh" }, "zh" },
    { "RegionOfArabic", { "ar-EG" }, { "ar", "en" }, "ar" },
    { "NorwegianOfNorway", { "nb-NO" }, { "nb", "en" }, "nb" },
    { "TheDearestFirst", { "fr-CA", "de-AT", "en" }, { "de", "en" }, "de" },
    { "AllOfTheDearestBeforeTheNext", { "de-AT", "fr" }, { "de", "fr" }, "de" },
    { "NoneIsThere", { "fr" }, { "de" }, "" },
    { "NoPreference", {}, { "de" }, "" },
    { "TheCLocale", { "C" }, { "de" }, "" },
    { "NoLocale", { "", "..", "../de", "x/y" }, { "de" }, "" },
};

TEST_F(FileBundleTest, TheLanguageIsTheDearestThatIsThere) {
    for (const auto &row : languages) {
        SCOPED_TRACE(row.name);
        addLanguages(row.folders);
        EXPECT_EQ(languageFor(row.preferred), row.chosen);
        for (const auto &code : row.folders)
            bundle_.removeFolder(code + QStringLiteral(".lproj"));
    }
}

TEST_F(FileBundleTest, TheDevelopmentRegionComesBehindAllPreferences) {
    addLanguages({ QStringLiteral("en"), QStringLiteral("it") });
    setDevelopmentRegion("it");
    EXPECT_EQ(languageFor({ QStringLiteral("fr") }), "it");
    EXPECT_EQ(languageFor({}), "it");
    EXPECT_EQ(languageFor({ QStringLiteral("fr"), QStringLiteral("en-GB") }), "en");
}

TEST_F(FileBundleTest, WithoutAnyLanguageTheValueOrTheKeyIsTheText) {
    setDevelopmentRegion("it");
    const auto bundle = bundle_.open({ QStringLiteral("de") });
    EXPECT_EQ(text(bundle), "key");
    EXPECT_EQ(text(bundle, QStringLiteral("key"), QStringLiteral("value")), "value");
    EXPECT_EQ(bundle.localization(), "");
}

TEST_F(FileBundleTest, ADevelopmentRegionThatIsNoneIsPassedOver) {
    addLanguages({ QStringLiteral("en") });
    for (const QByteArray value : { "<integer>5</integer>", "<string></string>", "<true/>",
             "<string>../Resources/en</string>", "<array><string>en</string></array>" }) {
        bundle_.writeInformation("<key>CFBundleDevelopmentRegion</key>" + value);
        EXPECT_EQ(languageFor({}), "") << value.toStdString();
    }
}

TEST_F(FileBundleTest, InformationThatIsMissingOrBrokenIsNone) {
    const auto bundle = bundle_.open();
    EXPECT_FALSE(bundle.objectForInfoDictionaryKey(QStringLiteral("a")).isValid());
    RawBundle::write(bundle_.contents() + QStringLiteral("/Info.plist"), "broken");
    EXPECT_FALSE(bundle.objectForInfoDictionaryKey(QStringLiteral("a")).isValid());
    RawBundle::write(bundle_.contents() + QStringLiteral("/Info.plist"),
        RawBundle::propertyList("<array><string>a</string></array>"));
    EXPECT_FALSE(bundle.objectForInfoDictionaryKey(QStringLiteral("a")).isValid());
}

TEST_F(FileBundleTest, TheMainBundleIsAroundTheExecutable) {
    const auto executable = QFile::symLinkTarget(QStringLiteral("/proc/self/exe"));
    const auto contents = QFileInfo(QFileInfo(executable).path()).path();
    EXPECT_EQ(FileBundle::mainBundle().frameworksPath(), contents + QStringLiteral("/Frameworks"));
}

// The session's settings are each read by a process of its own.
TEST(SystemLanguages, ComeFromTheSession) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    struct Row {
        const char *language;
        const char *locale;
        std::string expected;
    };
    for (const auto &row : { Row { "pt_BR:en", "en_US.UTF-8", "pt-BR" },
             Row { "zh_CN.UTF-8", "C.UTF-8", "zh-CN" }, Row { "", "fr_FR.UTF-8", "fr-FR" } }) {
        EXPECT_EXIT(
            {
                ::setenv("LANGUAGE", row.language, 1);
                ::setenv("LC_ALL", row.locale, 1);
                std::_Exit(systemLanguages().value(0).toStdString() == row.expected ? 0 : 1);
            },
            testing::ExitedWithCode(0), "")
            << row.expected;
    }
}

TEST(ShippedBundle, HasWhatEveryBrandNeeds) {
    const FileBundle bundle(QStringLiteral(NOTICE_BUNDLE "/Contents"), [] { return QStringList(); });
    EXPECT_TRUE(bundle.pathForResource(QStringLiteral("Application_Shared"), QStringLiteral("plist")));
    EXPECT_TRUE(bundle.pathForResource(QStringLiteral("ic_zelvikLogo"), QStringLiteral("png")));
    EXPECT_TRUE(bundle.pathForResource(QStringLiteral("ic_zelvikLogo@2x"), QStringLiteral("png")));
    EXPECT_TRUE(bundle.pathForResource(QStringLiteral("ic_zelvikLogo"), QStringLiteral("svg")));
    EXPECT_EQ(bundle.objectForInfoDictionaryKey(QStringLiteral("Default_App_Timeout")).metaType().id(),
        QMetaType::LongLong);
    EXPECT_EQ(bundle.localization(), "en");
}

} // namespace
