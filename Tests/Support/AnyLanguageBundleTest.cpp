#include "Support/AnyLanguageBundle.h"

#include "Tests/Platform/PrintQt.h"
#include "Tests/Platform/RawBundle.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

namespace {

class LanguageSwitch : public testing::Test {
protected:
    LanguageSwitch() {
        bundle_.writeInformation("<key>CFBundleDevelopmentRegion</key><string>en</string>");
        bundle_.writeTable(QStringLiteral("en"), R"("hello" = "Hello"; "only English" = "yes";)");
        bundle_.writeTable(QStringLiteral("de"), R"("hello" = "Hallo";)");
        bundle_.writeTable(QStringLiteral("de"), R"("hello" = "Hallo, Main";)", QStringLiteral("Main"));
        bundle_.writeTable(QStringLiteral("fr"), R"("hello" = "Bonjour";)");
    }

    QString text(const QString &key = QStringLiteral("hello"), const QString &value = {},
        const QString &table = {}) const {
        return languages_.localizedStringForKey(key, value, table);
    }
    void switchTo(const QString &code) { languages_.switchLanguage(code); }

    RawBundle bundle_;
    FileBundle mainBundle_ = bundle_.open({ QStringLiteral("fr-FR") }); // the user's own language is French
    AnyLanguageBundle languages_ { mainBundle_ };
};

class UnknownLanguage : public LanguageSwitch, public testing::WithParamInterface<QString> { };

TEST_P(UnknownLanguage, BringsBackTheUsersOwn) {
    // What the codes could reach if they were taken for paths.
    RawBundle::write(
        bundle_.contents() + QStringLiteral("/outside.lproj/Localizable.strings"), R"("hello" = "outside";)");
    RawBundle::write(bundle_.resource(QStringLiteral(".lproj/Localizable.strings")), R"("hello" = "empty";)");
    RawBundle::write(
        bundle_.resource(QStringLiteral("...lproj/Localizable.strings")), R"("hello" = "dots";)");
    switchTo(QStringLiteral("de"));
    switchTo(GetParam());
    EXPECT_EQ(text(), "Bonjour");
    EXPECT_EQ(languages_.localization(), "fr");
}

INSTANTIATE_TEST_SUITE_P(Codes, UnknownLanguage,
    testing::Values(QStringLiteral("xx"), QString(), QStringLiteral("."), QStringLiteral(".."),
        QStringLiteral("../outside"), QStringLiteral("../en"), QStringLiteral("en/../de"),
        QStringLiteral("./de"), QStringLiteral("de/"), QStringLiteral("/de"), QStringLiteral("/"),
        QStringLiteral("de.lproj"), QStringLiteral("DE"), QStringLiteral(" de"), QStringLiteral("de\n"),
        QStringLiteral("de-DE"), QStringLiteral(u"de\0"), QStringLiteral(u"\0de"),
        QStringLiteral(u"de\0.lproj/../en"), QString(QChar(u'\xd800')), QString(100000, u'e'),
        QStringLiteral("%s%n"), QStringLiteral("*")));

TEST_F(LanguageSwitch, AFolderWithoutTheRightsGivesTheUsersOwnTexts) {
    // As root everything may be read: the test goes on as somebody else, in a process of its own.
    GTEST_FLAG_SET(death_test_style, "fast");
    const auto setMode = [](const QString &path, mode_t mode) {
        EXPECT_EQ(::chmod(QFile::encodeName(path).constData(), mode), 0);
    };
    switchTo(QStringLiteral("de"));
    setMode(bundle_.contents() + QStringLiteral("/.."), 0755);
    setMode(bundle_.resource(QStringLiteral("de.lproj")), 0);
    EXPECT_EXIT(
        {
            if (::geteuid() == 0 && ::setresuid(65534, 65534, 65534) != 0)
                std::_Exit(2);
            std::_Exit(text() == QLatin1String("Bonjour") ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    setMode(bundle_.resource(QStringLiteral("de.lproj")), 0755);
}

TEST_F(LanguageSwitch, ABrokenTableIsALanguageWithoutTexts) {
    bundle_.writeTable(QStringLiteral("it"), R"("hello" = "Ciao"; "broken")");
    switchTo(QStringLiteral("it"));
    EXPECT_EQ(text(), "hello");
}

TEST_F(LanguageSwitch, ATextMayBeEmptyAndIsThenEmpty) {
    bundle_.writeTable(QStringLiteral("de"), R"("hello" = "";)");
    switchTo(QStringLiteral("de"));
    EXPECT_EQ(text(), "");
    EXPECT_EQ(text(QStringLiteral("hello"), QStringLiteral("value")), "");
}

} // namespace
