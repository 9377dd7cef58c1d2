#include "Formats/StringTable.h"

#include "Tests/Formats/Bytes.h"

#include <gtest/gtest.h>

#include <vector>

using Formats::parseStringTable;
using Table = Formats::StringTable;

namespace {

std::string list(const std::string &root) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + root + "</plist>\n";
}

struct TableRow {
    const char *name;
    std::string bytes;
    Table table;
};

const Table one { { "key", "value" } };
const Table two { { "a", "1" }, { "b", "2" } };

const std::vector<TableRow> tables {
    { "Nothing", "", {} },
    { "OnlyBlanks", " \n\t\r\n", {} },
    { "OneEntry", "\"key\" = \"value\";", one },
    { "NoBlanks", "\"key\"=\"value\";", one },
    { "ManyBlanks", "\n \"key\"\n=\n\t\"value\"\n;\n", one },
    { "TwoOnALine", "\"a\" = \"1\"; \"b\" = \"2\";", two },
    { "TwoOnTwoLines", "\"a\" = \"1\";\r\n\"b\" = \"2\";\r\n", two },
    { "LastOfOneKeyCounts", "\"key\" = \"first\"; \"key\" = \"value\";", one },
    { "BareWords", "key = value;", one },
    { "BareWordWithSigns", "com.key/1_-$:x = value;", { { "com.key/1_-$:x", "value" } } },
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
    { "FourHexDigits", R"("key" = "\U00e9\u20AC";)", { { "key", "é€" } } },
    { "SurrogatePair", R"("key" = "\Ud83d\Udd12";)", { { "key", "🔒" } } },
    { "HalfASurrogatePair", R"("key" = "\Ud83d\U0041\Udd12";)", { { "key", "\ufffdA\ufffd" } } },
    { "Octal", R"("key" = "\101\102";)", { { "key", "AB" } } },
    { "EscapesInKeys", R"("a\"b" = "value";)", { { "a\"b", "value" } } },
    { "PercentSigns", R"("key" = "%d of %@ 100%";)", { { "key", "%d of %@ 100%" } } },
    { "Utf8", "\"schlüssel\" = \"日本 🔒\";", { { "schlüssel", "日本 🔒" } } },
    { "Utf8WithMark", "\xef\xbb\xbf\"key\" = \"value\";", one },
    { "Utf16LittleEndian", utf16LittleEndian(u"\ufeff/* c */ \"key\" = \"value\";\n"), one },
    { "Utf16BigEndian", utf16BigEndian(u"\ufeff/* c */ \"key\" = \"value\";\n"), one },
    { "Utf16OutsideTheBasicPlane", utf16LittleEndian(u"\ufeff\"key\" = \"日🔒\";"), { { "key", "日🔒" } } },
    { "Utf16MarkAlone", "\xff\xfe", {} },
    { "PropertyList", list("<dict><key>key</key><string>value</string></dict>"), one },
    { "PropertyListInUtf16",
        utf16LittleEndian(u"\ufeff<?xml version=\"1.0\" encoding=\"UTF-16\"?>\n<plist version=\"1.0\"><dict>"
                          u"<key>key</key><string>value</string></dict></plist>"),
        one },
    { "BinaryPropertyList",
        bytes("bplist00\xd1\1\2\x53key\x55value\x08\x0b\x0f\0\0\0\0\0\0\1\1\0\0\0\0\0\0\0\3\0\0\0\0\0\0\0\0"
              "\0\0\0\0\0\0\0\x15"),
        one },
    { "PropertyListOfOtherValues",
        list("<dict><key>n</key><integer>1</integer><key>d</key><dict/>"
             "<key>key</key><string>value</string></dict>"),
        one },
    { "EmptyPropertyList", list("<dict/>"), {} },
};

TEST(StringTableText, IsReadWhole) {
    for (const auto &row : tables) {
        SCOPED_TRACE(row.name);
        const auto table = parseStringTable(row.bytes);
        ASSERT_TRUE(table.has_value());
        EXPECT_EQ(*table, row.table);
    }
}

const std::vector<std::string> brokenTables { "\"a\" = \"1\"", "\"a\" = ;", "\"a\" \"1\";", "= \"1\";",
    "\"a\" = \"1\"; \"b\"", "\"a\" = \"1\"; \"b", "\"a\" = \"1", "\"a\" = \"1\\", "\"a\" = \"1\" \"2\";",
    "\"a\" = \"1\"; /* no end", "\"a\" = \"1\"; ; ", "\"a\" = \"1\"; /", "\"a\" = (1, 2);",
    "\"a\" = { b = c; };", "\"a\" = \"\xff\xfe\";", "\"a\" = \"\xc3\";", bytes("\0\"\0a\0\"\0;"),
    bytes("\"a\" = \"1\";\0"), bytes("\xff\xfe\"\0a"), "bplist00",
    "bplist00 broken, and of some length beyond the trailer", "<plist><dict><key>a</key>", "<html></html>",
    list("<array><string>a</string></array>"), list("<string>a</string>") };

TEST(BrokenStringTable, IsNoneAtAll) {
    for (const auto &row : brokenTables) {
        SCOPED_TRACE(row);
        EXPECT_EQ(parseStringTable(row), std::nullopt);
    }
}

TEST(StringTable, AMegabyteOfOpenCommentsTakesNoTime) {
    EXPECT_EQ(parseStringTable(repeated("/*", 500'000)), std::nullopt);
    EXPECT_EQ(parseStringTable(repeated("\"", 500'001)), std::nullopt);
    EXPECT_EQ(parseStringTable(repeated("(", 500'000)), std::nullopt);
}

} // namespace
