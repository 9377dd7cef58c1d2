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

struct Face {
    const char *family;
    const char *style;
    int slant = FC_SLANT_ROMAN;
    int width = FC_WIDTH_NORMAL;
    int weight = FC_WEIGHT_REGULAR;
};

/// A machine with these faces and no others. They are all one font file, which the library is told to take
/// for something else.
class LinuxFontsTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(folder_.isValid());
        ASSERT_TRUE(QDir(folder_.path()).mkdir(QStringLiteral("fonts")));
        install({});
    }

    void TearDown() override {
        qunsetenv("FONTCONFIG_FILE");
        FcConfigSetCurrent(FcInitLoadConfigAndFonts());
    }

    void install(const std::vector<Face> &faces) {
        QByteArray rules;
        for (std::size_t index = 0; index < faces.size(); ++index) {
            const auto &face = faces[index];
            const auto file = folder_.filePath(QStringLiteral("fonts/%1.ttf").arg(index));
            ASSERT_TRUE(
                QFile::copy(QStringLiteral("/usr/share/fonts/truetype/noto/NotoSans-Regular.ttf"), file))
                << "the package fonts-noto-core is missing";
            rules += "<match target=\"scan\"><test name=\"file\"><string>" + file.toUtf8()
                + "</string></test>" + edit("family", "string", escaped(face.family))
                + edit("fullname", "string", escaped(QByteArray(face.family) + ' ' + face.style))
                + edit("slant", "int", QByteArray::number(face.slant))
                + edit("width", "int", QByteArray::number(face.width))
                + edit("weight", "int", QByteArray::number(face.weight)) + "</match>";
        }
        QFile settings(folder_.filePath(QStringLiteral("fonts.conf")));
        ASSERT_TRUE(settings.open(QIODevice::WriteOnly));
        settings.write("<?xml version=\"1.0\"?><!DOCTYPE fontconfig SYSTEM \"fonts.dtd\"><fontconfig><dir>"
            + folder_.filePath(QStringLiteral("fonts")).toUtf8() + "</dir><cachedir>"
            + folder_.filePath(QStringLiteral("cache")).toUtf8() + "</cachedir>" + rules + "</fontconfig>");
        settings.close();
        qputenv("FONTCONFIG_FILE", settings.fileName().toLocal8Bit());
        FcConfigSetCurrent(FcInitLoadConfigAndFonts());
    }

    static QByteArray escaped(const QByteArray &text) {
        return QString::fromUtf8(text).toHtmlEscaped().toUtf8();
    }

    static QByteArray edit(const char *property, const QByteArray &type, const QByteArray &value) {
        return QByteArray("<edit name=\"") + property + "\" mode=\"assign\"><" + type + '>' + value + "</"
            + type + "></edit>";
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
    install({
        { .family = "One", .style = "Regular" },
        { .family = "One", .style = "SemiBold", .weight = FC_WEIGHT_DEMIBOLD },
        { .family = "One", .style = "Bold", .weight = FC_WEIGHT_BOLD },
        { .family = "One", .style = "Italic", .slant = FC_SLANT_ITALIC },
        { .family = "One", .style = "Oblique", .slant = FC_SLANT_OBLIQUE },
        { .family = "One", .style = "Thin", .weight = FC_WEIGHT_THIN },
        { .family = "One", .style = "Light", .weight = FC_WEIGHT_LIGHT },
        { .family = "One", .style = "Black", .weight = FC_WEIGHT_BLACK },
        { .family = "One", .style = "Condensed", .width = FC_WIDTH_CONDENSED },
        { .family = "One",
            .style = "SemiCondensed Bold",
            .width = FC_WIDTH_SEMICONDENSED,
            .weight = FC_WEIGHT_BOLD },
    });
    EXPECT_EQ(faces().size(), 10U);
    EXPECT_TRUE(LinuxFonts::load());
    EXPECT_EQ(faces(), (std::multiset<std::string> { "One Regular", "One SemiBold", "One Bold" }));
}

TEST_F(LinuxFontsTest, KeepsAllOfAFamilyThatHasNothingElse) {
    install({
        { .family = "One", .style = "Regular" },
        { .family = "One", .style = "Italic", .slant = FC_SLANT_ITALIC },
        { .family = "Two & <Three>", .style = "Italic", .slant = FC_SLANT_ITALIC },
        { .family = "Two & <Three>", .style = "Condensed", .width = FC_WIDTH_CONDENSED },
    });
    EXPECT_EQ(faces().size(), 4U);
    LinuxFonts::load();
    EXPECT_EQ(faces(),
        (std::multiset<std::string> { "One Regular", "Two & <Three> Italic", "Two & <Three> Condensed" }));
}

TEST_F(LinuxFontsTest, SaysThatThereIsNoFont) {
    EXPECT_FALSE(LinuxFonts::load());
    EXPECT_TRUE(faces().empty());
}

TEST(LinuxFontsOfThisMachineTest, KnowsTheFamilyOfALanguageThatSharesItsLetters) {
    FcConfigSetCurrent(FcInitLoadConfigAndFonts());
    std::set<QString> families;
    for (const auto *language : { "zh-Hans", "zh-Hant", "ja", "ko" }) {
        const auto family = LinuxFonts::familyFor(QLocale(QString::fromLatin1(language)));
        if (family.isEmpty())
            GTEST_SKIP() << "no font for " << language << " is installed";
        families.insert(family);
    }
    EXPECT_EQ(families.size(), 4U) << "each has its own letter forms";
    for (const auto *language : { "en", "ar", "hi", "ru" })
        EXPECT_EQ(LinuxFonts::familyFor(QLocale(QString::fromLatin1(language))), "") << language;
}

} // namespace
