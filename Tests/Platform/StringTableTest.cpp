#include "Platform/StringTable.h"

#include "Tests/Platform/PrintQt.h"
#include "Tests/Platform/RawBundle.h"

#include <QStringEncoder>

#include <gtest/gtest.h>
#include <plist/plist.h>

#include <cstdlib>

namespace {

using Table = StringTable::Table;

QByteArray encoded(const QString &text, QStringConverter::Encoding encoding) {
    QStringEncoder encoder(encoding, QStringConverter::Flag::WriteBom);
    return encoder(text);
}

struct Row {
    const char *name;
    QByteArray bytes;
    Table table;
};

void PrintTo(const Row &row, std::ostream *stream) {
    *stream << row.name;
}

class StringTableText : public testing::TestWithParam<Row> { };

TEST_P(StringTableText, IsReadWhole) {
    const auto table = StringTable::parse(GetParam().bytes);
    ASSERT_TRUE(table.has_value());
    EXPECT_EQ(*table, GetParam().table);
}

const Table one { { "key", "value" } };
const Table two { { "a", "1" }, { "b", "2" } };

const std::vector<Row> texts {
    { "Nothing", "", {} },
    { "OnlyBlanks", " \n\t\r\n", {} },
    { "OneEntry", "\"key\" = \"value\";", one },
    { "NoBlanks", "\"key\"=\"value\";", one },
    { "ManyBlanks", "\n \"key\"\n=\n\t\"value\"\n;\n", one },
    { "TwoOnALine", "\"a\" = \"1\"; \"b\" = \"2\";", two },
    { "TwoOnTwoLines", "\"a\" = \"1\";\r\n\"b\" = \"2\";\r\n", two },
    { "LastOfOneKeyCounts", "\"key\" = \"first\"; \"key\" = \"value\";", one },
    { "BareWords", "key = value;", one },
    { "BareWordWithDots", "com.key_1-$:x = value;", { { "com.key_1-$:x", "value" } } },
    { "SingleQuotes", "'key' = 'value';", one },
    { "KeyAlone", "\"key\";", { { "key", "key" } } },
    { "EmptyValue", "\"key\" = \"\";", { { "key", "" } } },
    { "EmptyKey", "\"\" = \"value\";", { { "", "value" } } },
    { "BlanksInsideAreKept", "\" key \" = \" value \";", { { " key ", " value " } } },
    { "LineBreakInside", "\"key\" = \"two\nlines\";", { { "key", "two\nlines" } } },
    { "LineComment", "// comment \"x\" = \"y\";\n\"key\" = \"value\"; // end", one },
    { "BlockComment", "/* comment\n * \"x\" = \"y\"; */ \"key\" = \"value\"; /**/", one },
    { "CommentsEverywhere", "/*1*/\"key\"/*2*/=/*3*/\"value\"/*4*/;//5", one },
    { "CommentSignsInsideAText", "\"key\" = \"/* no // comment */\";", { { "key", "/* no // comment */" } } },
    { "AddressAsText", "\"key\" = \"http://a/b\";", { { "key", "http://a/b" } } },
    { "Quotes", R"("key" = "say \"hello\"";)", { { "key", "say \"hello\"" } } },
    { "Backslash", R"("key" = "a\\b\\";)", { { "key", "a\\b\\" } } },
    { "ControlEscapes", R"("key" = "\a\b\f\n\r\t\v";)", { { "key", "\a\b\f\n\r\t\v" } } },
    { "EscapeOfAnyOther", R"("key" = "\'\/\q";)", { { "key", "'/q" } } },
    { "EscapedLineBreak", "\"key\" = \"a\\\nb\";", { { "key", "a\nb" } } },
    { "FourHexDigits", R"("key" = "\U00e9\u20AC";)", { { "key", QStringLiteral(u"é€") } } },
    { "SurrogatePair", R"("key" = "\Ud83d\Udd12";)", { { "key", QStringLiteral(u"\U0001f512") } } },
    { "Octal", R"("key" = "\101\102";)", { { "key", "AB" } } },
    { "EscapesInKeys", R"("a\"b" = "value";)", { { "a\"b", "value" } } },
    { "PercentSigns", R"("key" = "%d of %@ 100%";)", { { "key", "%d of %@ 100%" } } },
    { "Utf8", QByteArray("\"schl\xc3\xbcssel\" = \"\xe6\x97\xa5\xe6\x9c\xac \xf0\x9f\x94\x92\";"),
        { { QStringLiteral(u"schlüssel"), QStringLiteral(u"日本 \U0001f512") } } },
    { "Utf8WithMark", encoded("\"key\" = \"value\";", QStringConverter::Utf8), one },
    { "Utf16LittleEndian", encoded("/* c */ \"key\" = \"value\";\n", QStringConverter::Utf16LE), one },
    { "Utf16BigEndian", encoded("/* c */ \"key\" = \"value\";\n", QStringConverter::Utf16BE), one },
    { "Utf16OutsideTheBasicPlane",
        encoded(QStringLiteral(u"\"key\" = \"日\U0001f512\";"), QStringConverter::Utf16LE),
        { { "key", QStringLiteral(u"日\U0001f512") } } },
    { "Utf16MarkAlone", QByteArray("\xff\xfe", 2), {} },
    { "PropertyList", RawBundle::propertyList("<dict><key>key</key><string>value</string></dict>"), one },
    { "PropertyListWithMark",
        "\xef\xbb\xbf" + RawBundle::propertyList("<dict><key>key</key><string>value</string></dict>"), one },
    { "PropertyListInUtf16",
        encoded("<?xml version=\"1.0\" encoding=\"UTF-16\"?>\n<plist version=\"1.0\"><dict><key>key</key>"
                "<string>value</string></dict></plist>",
            QStringConverter::Utf16LE),
        one },
    { "PropertyListWithReferences",
        RawBundle::propertyList("<dict><key>a&amp;b</key><string>&lt;&#233;&gt;</string></dict>"),
        { { "a&b", QStringLiteral(u"<é>") } } },
    { "PropertyListOfOtherValues",
        RawBundle::propertyList("<dict><key>n</key><integer>1</integer><key>d</key><dict/>"
                                "<key>key</key><string>value</string></dict>"),
        one },
    { "EmptyPropertyList", RawBundle::propertyList("<dict/>"), {} },
};
INSTANTIATE_TEST_SUITE_P(
    Forms, StringTableText, testing::ValuesIn(texts), [](const auto &row) { return row.param.name; });

TEST(StringTable, ABinaryPropertyListIsReadAsWell) {
    const auto list = plist_new_dict();
    plist_dict_set_item(list, "key", plist_new_string("value"));
    plist_dict_set_item(list, "sch\xc3\xbcler", plist_new_string("\xe6\x97\xa5 \xf0\x9f\x94\x92"));
    char *bytes = nullptr;
    std::uint32_t length = 0;
    plist_to_bin(list, &bytes, &length);
    const QByteArray binary(bytes, static_cast<qsizetype>(length));
    std::free(bytes);
    plist_free(list);
    const auto table = StringTable::parse(binary);
    ASSERT_TRUE(table.has_value());
    EXPECT_EQ(*table,
        (Table { { "key", "value" }, { QStringLiteral(u"schüler"), QStringLiteral(u"日 \U0001f512") } }));
}

class BrokenStringTable : public testing::TestWithParam<QByteArray> { };

TEST_P(BrokenStringTable, IsNoneAtAll) {
    EXPECT_EQ(StringTable::parse(GetParam()), std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(Texts, BrokenStringTable,
    testing::Values("\"a\" = \"1\"", "\"a\" = ;", "\"a\" \"1\";", "= \"1\";", "\"a\" = \"1\"; \"b\"",
        "\"a\" = \"1\"; \"b", "\"a\" = \"1", "\"a\" = \"1\\", "\"a\" = \"1\" \"2\";",
        "\"a\" = \"1\"; /* no end", "\"a\" = \"1\"; ; ", "\"a\" = \"1\"; /", "\"a\" = (1, 2);",
        "\"a\" = { b = c; };", QByteArray("\"a\" = \"\xff\xfe\";"), QByteArray("\"a\" = \"\xc3\";"),
        QByteArray("\0\"\0a\0\"\0;", 8), QByteArray("\"a\" = \"1\";\0", 11), QByteArray("\xff\xfe\"\0a", 5),
        QByteArray("bplist00"), QByteArray("bplist00 broken, and of some length beyond the trailer"),
        QByteArray("<plist><dict><key>a</key>"), QByteArray("<html></html>"),
        RawBundle::propertyList("<array><string>a</string></array>"),
        RawBundle::propertyList("<string>a</string>")));

TEST(StringTable, AMegabyteOfOpenCommentsTakesNoTime) {
    EXPECT_EQ(StringTable::parse(QByteArray("/*").repeated(500'000)), std::nullopt);
    EXPECT_EQ(StringTable::parse(QByteArray("\"").repeated(500'001)), std::nullopt);
    EXPECT_EQ(StringTable::parse(QByteArray("(").repeated(500'000)), std::nullopt);
}

TEST(StringTable, AHundredThousandEntriesAreRead) {
    QByteArray text;
    for (int number = 0; number < 100'000; ++number)
        text += "\"key " + QByteArray::number(number) + "\" = \"value\";\n";
    const auto table = StringTable::parse(text);
    ASSERT_TRUE(table.has_value());
    EXPECT_EQ(table->size(), 100'000);
}

} // namespace
