#include "Support/ColorFromHex.h"

#include "Tests/Platform/PrintQt.h"

#include <gtest/gtest.h>

namespace {

struct Row {
    const char *name;
    QString text;
    int red;
    int green;
    int blue;
};

const std::vector<Row> numbers {
    { "TheDefault", "#2A292F", 42, 41, 47 },
    { "LowerCaseWithoutHash", "2a292f", 42, 41, 47 },
    { "BlanksAndLineBreakAround", " \t #2a292f \r\n ", 42, 41, 47 },
    { "NoBreakSpaceAround", QStringLiteral(u"\u00a0#2A292F\u2003"), 42, 41, 47 },
    { "OnlyOneHashIsRemoved", "##2A292", 0, 0, 0 },
    { "HexPrefix", "0X1234", 0, 18, 52 },
    { "HexPrefixInLowerCase", "0x1234", 0, 18, 52 },
    { "HexPrefixBehindHash", "#0xabcd", 0, 171, 205 },
    { "HexPrefixWithoutDigits", "0XGGGG", 0, 0, 0 },
    { "NoDigitFirst", "GG0000", 0, 0, 0 },
    { "TwoDigitsThenOthers", "12ZZZZ", 0, 0, 18 },
    { "FiveDigitsThenOther", "12345G", 1, 35, 69 },
    { "InnerBlankEndsTheNumber", "12 456", 0, 0, 18 },
    { "BlankBehindTheHashIsNoDigit", "# 12345", 0, 0, 0 },
    { "BlankBeforeTheHashInside", "1 #234", 0, 0, 1 },
    { "Minus", "-12345", 0, 0, 0 },
    { "Plus", "+12345", 0, 0, 0 },
    { "OtherScriptsDigitsAreNone", QStringLiteral(u"\uff11\uff12\uff13\uff14\uff15\uff16"), 0, 0, 0 },
    { "LastCharacterIsNoAscii", QStringLiteral(u"12345é"), 1, 35, 69 },
    { "LastCharacterIsOutsideTheBasicPlane", QStringLiteral(u"12345\U0001f512"), 1, 35, 69 },
    { "GrowsToSixCharactersInUpperCase", QStringLiteral(u"1234ß"), 0, 18, 52 },
    { "NulEndsTheNumber",
        QStringLiteral(u"12\0"
                       u"456"),
        0, 0, 18 },
};

TEST(ColorFromHex, ReadsTheText) {
    for (const auto &row : numbers) {
        SCOPED_TRACE(row.name);
        const auto color = colorFromHex(row.text);
        EXPECT_EQ(color.red(), row.red);
        EXPECT_EQ(color.green(), row.green);
        EXPECT_EQ(color.blue(), row.blue);
        EXPECT_EQ(color.alpha(), 255);
    }
}

const std::vector<QString> otherLengths { QString(), QStringLiteral(""), QStringLiteral("#"),
    QStringLiteral("##"), QStringLiteral("      "), QStringLiteral(" \n "), QStringLiteral("#FFF"),
    QStringLiteral("FFF"), QStringLiteral("#12345"), QStringLiteral("1234567"), QStringLiteral("#1234567"),
    QStringLiteral("#2A292FFF"), QStringLiteral("0x2A292F"), QStringLiteral("# 2A292F"),
    QStringLiteral("##2A292F"), QStringLiteral("red"), QStringLiteral(u"\U0001f512\U0001f512\U0001f512"),
    QString(100000, u'A') };

TEST(ColorFromHexGray, AnyOtherLengthIsGray) {
    for (const auto &row : otherLengths) {
        SCOPED_TRACE(row.left(100).toStdString());
        const auto color = colorFromHex(row);
        EXPECT_NEAR(color.redF(), 0.5, 0.001);
        EXPECT_NEAR(color.greenF(), 0.5, 0.001);
        EXPECT_NEAR(color.blueF(), 0.5, 0.001);
        EXPECT_EQ(color.alphaF(), 1.0F);
    }
}

} // namespace
