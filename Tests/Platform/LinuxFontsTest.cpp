#include "Platform/Linux/LinuxFonts.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <fontconfig/fontconfig.h>

#include <set>
#include <string>
#include <vector>

namespace {

/// A machine with the font files of a folder and no others.
class LinuxFontsTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(folder_.isValid());
        ASSERT_TRUE(QDir(folder_.path()).mkdir(QStringLiteral("fonts")));
        QFile settings(folder_.filePath(QStringLiteral("fonts.conf")));
        ASSERT_TRUE(settings.open(QIODevice::WriteOnly));
        settings.write("<?xml version=\"1.0\"?><!DOCTYPE fontconfig SYSTEM \"fonts.dtd\"><fontconfig><dir>"
            + folder_.filePath(QStringLiteral("fonts")).toUtf8() + "</dir><cachedir>"
            + folder_.filePath(QStringLiteral("cache")).toUtf8() + "</cachedir></fontconfig>");
        settings.close();
        qputenv("FONTCONFIG_FILE", settings.fileName().toLocal8Bit());
        FcConfigSetCurrent(FcInitLoadConfigAndFonts());
    }

    void TearDown() override {
        qunsetenv("FONTCONFIG_FILE");
        FcConfigSetCurrent(FcInitLoadConfigAndFonts());
    }

    void install(const std::vector<const char *> &files) {
        for (const auto *file : files) {
            const auto name = QString::fromLatin1(file);
            ASSERT_TRUE(QFile::copy(QStringLiteral("/usr/share/fonts/truetype/noto/") + name,
                folder_.filePath(QStringLiteral("fonts/") + name)))
                << file << " of the package fonts-noto-core is missing";
        }
    }

    static std::multiset<std::string> faces() {
        std::multiset<std::string> names;
        const auto *all = FcConfigGetFonts(FcConfigGetCurrent(), FcSetSystem);
        for (int index = 0; all && index < all->nfont; ++index) {
            FcChar8 *name = nullptr;
            if (FcPatternGetString(all->fonts[index], FC_FULLNAME, 0, &name) == FcResultMatch)
                names.insert(reinterpret_cast<const char *>(name));
        }
        return names;
    }

private:
    QTemporaryDir folder_;
};

TEST_F(LinuxFontsTest, KeepsTheUprightFacesFromRegularToBold) {
    install({ "NotoSans-Regular.ttf", "NotoSans-SemiBold.ttf", "NotoSans-Bold.ttf", "NotoSans-Italic.ttf",
        "NotoSans-Light.ttf", "NotoSans-Thin.ttf", "NotoSans-Black.ttf", "NotoSans-Condensed.ttf",
        "NotoSans-SemiCondensedBold.ttf", "NotoSans-ExtraCondensed.ttf" });
    LinuxFonts::load();
    EXPECT_EQ(faces(),
        (std::multiset<std::string> { "Noto Sans Regular", "Noto Sans SemiBold", "Noto Sans Bold" }));
}

TEST_F(LinuxFontsTest, KeepsAllOfAFamilyThatHasNothingElse) {
    install({ "NotoSans-Regular.ttf", "NotoSans-Italic.ttf", "NotoSerif-Italic.ttf",
        "NotoSerif-CondensedLight.ttf" });
    LinuxFonts::load();
    EXPECT_EQ(faces(),
        (std::multiset<std::string> {
            "Noto Sans Regular", "Noto Serif Italic", "Noto Serif Condensed Light" }));
}

TEST_F(LinuxFontsTest, WorksWithoutAnyFont) {
    LinuxFonts::load();
    EXPECT_TRUE(faces().empty());
}

TEST_F(LinuxFontsTest, WorksWithABrokenConfiguration) {
    install({ "NotoSans-Regular.ttf", "NotoSans-Italic.ttf" });
    qputenv("FONTCONFIG_FILE", "/dev/null");
    LinuxFonts::load();
    EXPECT_TRUE(FcInit());
}

TEST(LinuxFontsOfThisMachineTest, LosesNoFamily) {
    const auto families = [] {
        std::set<std::string> names;
        const auto *all = FcConfigGetFonts(FcConfigGetCurrent(), FcSetSystem);
        for (int index = 0; all && index < all->nfont; ++index) {
            FcChar8 *name = nullptr;
            if (FcPatternGetString(all->fonts[index], FC_FAMILY, 0, &name) == FcResultMatch)
                names.insert(reinterpret_cast<const char *>(name));
        }
        return names;
    };
    FcConfigSetCurrent(FcInitLoadConfigAndFonts());
    const auto before = families();
    ASSERT_FALSE(before.empty());
    LinuxFonts::load();
    EXPECT_EQ(families(), before);
}

} // namespace
