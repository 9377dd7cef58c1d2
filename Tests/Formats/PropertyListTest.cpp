#include "Formats/PropertyList.h"

#include "Formats/File.h"
#include "Tests/Formats/Bytes.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

using Formats::Data;
using Formats::parsePropertyList;
using Formats::PropertyList;
using Formats::PropertyValue;

namespace {

std::string xmlList(const std::string &root) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + root + "</plist>\n";
}

/// A list with one entry.
std::string xmlEntry(const std::string &element) {
    return xmlList("<dict><key>k</key>" + element + "</dict>");
}

std::string number(std::size_t value, int width) {
    std::string result;
    for (int shift = 8 * (width - 1); shift >= 0; shift -= 8)
        result += static_cast<char>(value >> shift & 0xff);
    return result;
}

/// A binary list of these objects, the first of which is its root. References have one byte.
std::string binaryList(const std::vector<std::string> &objects) {
    std::string result = "bplist00";
    std::string table;
    for (const auto &object : objects) {
        table += number(result.size(), 4);
        result += object;
    }
    const auto start = result.size();
    return result + table + bytes("\0\0\0\0\0\0\4\1") + number(objects.size(), 8) + number(0, 8)
        + number(start, 8);
}

std::string binaryEntry(const std::string &object) {
    return binaryList({ bytes("\xd1\1\2"), "\x51k", object });
}

constexpr auto largest = std::numeric_limits<std::int64_t>::max();
constexpr auto smallest = std::numeric_limits<std::int64_t>::min();
const PropertyValue other;

PropertyValue integer(std::int64_t value) {
    return value;
}

PropertyValue text(std::string value) {
    return value;
}

PropertyValue data(std::string value) {
    return Data { std::move(value) };
}

struct Row {
    const char *name;
    std::string xml;
    std::string binary;
    PropertyValue value;
};

const std::vector<Row> values {
    { "True", "<true/>", "\x09", true },
    { "False", "<false/>", "\x08", false },
    { "One", "<integer>1</integer>", "\x10\1", integer(1) },
    { "IntegerOf8Bits", "<integer>200</integer>", "\x10\xc8", integer(200) },
    { "IntegerOf16Bits", "<integer>40000</integer>", "\x11\x9c\x40", integer(40000) },
    { "IntegerOf32Bits", "<integer>4000000000</integer>", bytes("\x12\xee\x6b\x28\0"), integer(4000000000) },
    { "Largest", "<integer>9223372036854775807</integer>", "\x13\x7f" + std::string(7, '\xff'),
        integer(largest) },
    { "MinusOne", "<integer>-1</integer>", "\x13" + std::string(8, '\xff'), integer(-1) },
    { "Smallest", "<integer>-9223372036854775808</integer>", "\x13\x80" + std::string(7, '\0'),
        integer(smallest) },
    { "Unsigned", "<integer>18446744073709551615</integer>",
        "\x14" + std::string(8, '\0') + std::string(8, '\xff'), other },
    // A whole number, but no integer.
    { "Real", "<real>30.0</real>", "\x23\x40\x3e" + std::string(6, '\0'), other },
    { "String", "<string>zelvik</string>", "\x56zelvik", text("zelvik") },
    { "EmptyString", "<string></string>", "\x50", text("") },
    { "LongString", "<string>abcdefghijklmnopq</string>",
        "\x5f\x10\x11"
        "abcdefghijklmnopq",
        text("abcdefghijklmnopq") },
    { "OtherScripts", "<string>é 日 🔒</string>", "\x66" + utf16BigEndian(u"é 日 🔒"), text("é 日 🔒") },
    { "Data", "<data>AP9h</data>", bytes("\x43\0\xff\x61"), data(bytes("\0\xff\x61")) },
    { "DataOnLines", "<data>\n\tAP9h\n\tYQ==\n</data>", bytes("\x44\0\xff\x61\x61"),
        data(bytes("\0\xff\x61\x61")) },
    { "EmptyData", "<data></data>", "\x40", data("") },
    { "Date", "<date>2024-02-29T12:34:56Z</date>", "\x33" + std::string(8, '\0'), other },
    { "Array", "<array><true/><string>a</string><array/></array>", bytes("\xa1\0"), other },
    { "Dictionary", "<dict><key>k</key><string>inside</string></dict>", bytes("\xd1\1\1"), other },
};

TEST(PropertyListValue, HasItsTypeInXml) {
    for (const auto &row : values) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(parsePropertyList(xmlEntry(row.xml)), (PropertyList { { "k", row.value } }));
    }
}

TEST(PropertyListValue, HasItsTypeInBinary) {
    for (const auto &row : values) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(parsePropertyList(binaryEntry(row.binary)), (PropertyList { { "k", row.value } }));
    }
}

TEST(PropertyListTest, ATextMayHoldAZero) {
    EXPECT_EQ(parsePropertyList(binaryEntry(bytes("\x53"
                                                  "a\0b"))),
        (PropertyList { { "k", text(bytes("a\0b")) } }));
    EXPECT_EQ(parsePropertyList(binaryEntry(bytes("\x63\0a\0\0\0b"))),
        (PropertyList { { "k", text(bytes("a\0b")) } }));
}

struct IntegerRow {
    std::string text;
    std::optional<PropertyValue> value; ///< nothing where the whole list is unreadable
};

const std::vector<IntegerRow> integers { { "120", integer(120) }, { "+30", integer(30) },
    { "-0", integer(0) }, { "0120", integer(120) }, { "090", integer(90) }, { "0x1e", integer(30) },
    { "0X1E", integer(30) }, { "-0x10", integer(-16) }, { "0x7fffffffffffffff", integer(largest) },
    { "9223372036854775808", other }, { "18446744073709551616", {} }, { "-9223372036854775809", {} },
    { "", {} }, { "abc", {} }, { "3 0", {} }, { "30s", {} }, { "3.5", {} }, { " 30", {} }, { "30 ", {} },
    { "+", {} }, { "-", {} }, { "--3", {} }, { "+-3", {} }, { "0x", {} }, { "0x-3", {} }, { "1e3", {} },
    { "<true/>", {} }, { "٣", {} } };

TEST(XmlInteger, IsASignAndDigitsOrMakesTheListUnreadable) {
    for (const auto &row : integers) {
        SCOPED_TRACE(row.text);
        const auto list = parsePropertyList(xmlEntry("<integer>" + row.text + "</integer>"));
        ASSERT_EQ(list.has_value(), row.value.has_value());
        if (list) {
            EXPECT_EQ(list->at("k"), *row.value);
        }
        const auto nested = parsePropertyList(xmlEntry("<array><integer>" + row.text + "</integer></array>"));
        EXPECT_EQ(nested.has_value(), row.value.has_value());
    }
}

struct EncodingRow {
    const char *name;
    std::string bytes;
};

constexpr auto listText = u"<plist><dict><key>k</key><string>é</string></dict></plist>";
const auto utf8List = xmlEntry("<string>é</string>");
const auto latin1List = "<?xml version='1.0' encoding='ISO-8859-1'?>"
                        "<plist><dict><key>k</key><string>\xe9</string></dict></plist>";
const auto declaredUtf16 = std::u16string(u"<?xml version='1.0' encoding='UTF-16'?>") + listText;
const auto wronglyDeclared = std::u16string(u"<?xml version='1.0' encoding='ISO-8859-1'?>") + listText;

const std::vector<EncodingRow> encodings { { "Utf8", utf8List },
    { "Utf8WithoutDeclaration", utf8List.substr(utf8List.find("<plist")) },
    { "Utf8WithMark", "\xef\xbb\xbf" + utf8List },
    { "MarkOverDeclaration",
        "\xef\xbb\xbf<?xml version='1.0' encoding='ISO-8859-1'?>"
            + utf8List.substr(utf8List.find("<plist")) },
    { "Latin1", latin1List },
    { "Ascii",
        "<?xml version='1.0' encoding='US-ASCII'?><plist><dict><key>k</key><string>&#233;</string>"
        "</dict></plist>" },
    { "Utf16LittleEndian", utf16LittleEndian(u"\ufeff" + declaredUtf16) },
    { "Utf16BigEndian", utf16BigEndian(u"\ufeff" + declaredUtf16) },
    { "Utf16WithoutDeclaration", utf16LittleEndian(std::u16string(u"\ufeff") + listText) },
    { "Utf16MarkOverDeclaration", utf16BigEndian(u"\ufeff" + wronglyDeclared) },
    { "Utf16WithoutMark", utf16LittleEndian(declaredUtf16) } };

TEST(XmlEncoding, IsHonoured) {
    for (const auto &row : encodings) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(parsePropertyList(row.bytes), (PropertyList { { "k", text("é") } }));
    }
}

TEST(PropertyListTest, CommentsBlanksAndADocumentTypeAreSkipped) {
    EXPECT_EQ(parsePropertyList("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                                "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                                "<plist version=\"1.0\"><!-- c -->\n<dict>\n\t<!-- c --><key>a</key>\n<!-- "
                                "c --><string>b</string>\n</dict>\n</plist>\n"),
        (PropertyList { { "a", text("b") } }));
}

TEST(PropertyListTest, TheRootNeedsNoElementAroundIt) {
    EXPECT_EQ(parsePropertyList("<dict><key>k</key><true/></dict>"), (PropertyList { { "k", true } }));
    EXPECT_EQ(parsePropertyList("<dict/>"), PropertyList());
}

TEST(PropertyListTest, OfAKeyThatStandsTwiceTheLastValueCounts) {
    EXPECT_EQ(
        parsePropertyList(xmlList("<dict><key>a</key><true/><key>b</key><true/><key>a</key><false/></dict>")),
        (PropertyList { { "a", false }, { "b", true } }));
}

const std::vector<std::string> unreadable { "", bytes("\0"), "text", "<", "<plist", "<plist/>",
    "<plist></plist>", "<plist><dict><key>a</key>", "<plist><dict><key>a</key><string>b</dict></plist>",
    "<dict/><dict/>", xmlList("<array><true/></array>"), xmlList("<string>a</string>"),
    xmlList("<dict/><dict/>"), xmlList("<plist><dict/></plist>"), xmlList("<dict><string>b</string></dict>"),
    xmlList("<dict><key>a</key></dict>"), xmlList("<dict><key>a</key><key>b</key><true/></dict>"),
    xmlList("<dict>text</dict>"), xmlEntry("<array><key>a</key></array>"), xmlEntry("<set/>"),
    xmlEntry("<dict><string>b</string></dict>"), xmlEntry("<string>a<true/></string>"),
    xmlEntry("<true>1</true>"), xmlEntry("<data>AP9!</data>"), xmlEntry("<data>A=9h</data>"),
    xmlEntry("<string>\xe9</string>"), xmlEntry("<string>&undeclared;</string>"),
    "<?xml version='1.0' encoding='bogus-8'?>" + xmlEntry("<true/>"),
    "<?xml version='1.0' encoding='US-ASCII'?><dict><key>k</key><string>é</string></dict>" };

const std::vector<std::string> unreadableBinary { "bplist", "bplist00", "bplist00" + std::string(24, '\0'),
    "bplist00" + std::string(32, '\0'), "bplist00" + std::string(32, '\xff'),
    "bplist00" + std::string(1000, '\xd1'), binaryList({}), binaryList({ "\x09" }),
    binaryList({ bytes("\xa1\1"), "\x09" }), binaryList({ bytes("\xd1\1\7"), "\x51k" }),
    binaryList({ bytes("\xd1\1\2"), "\x09", "\x09" }), binaryEntry("\x70"),
    binaryEntry("\x5f\x13" + std::string(8, '\xff')), binaryEntry("\x52\xe9\xe9"),
    binaryEntry(bytes("\x61\xd8\0")) };

TEST(NoPropertyList, IsNothing) {
    for (const auto &row : unreadable) {
        SCOPED_TRACE(testing::PrintToString(row));
        EXPECT_EQ(parsePropertyList(row), std::nullopt);
    }
    for (const auto &row : unreadableBinary) {
        SCOPED_TRACE(testing::PrintToString(row));
        EXPECT_EQ(parsePropertyList(row), std::nullopt);
    }
}

TEST(PropertyListLimits, AnyNumberOfLevelsIsHarmless) {
    const auto nested = [](std::size_t levels) {
        return xmlEntry(repeated("<array>", levels) + "<true/>" + repeated("</array>", levels));
    };
    EXPECT_EQ(parsePropertyList(nested(900)), (PropertyList { { "k", other } }));
    EXPECT_EQ(parsePropertyList(nested(100'000)), std::nullopt);
    EXPECT_EQ(parsePropertyList(repeated("<dict><key>a</key>", 200'000)), std::nullopt);
}

TEST(PropertyListLimits, ObjectsThatAreSharedOrHoldThemselvesAreHarmless) {
    EXPECT_EQ(parsePropertyList(binaryEntry(bytes("\xa1\2"))), (PropertyList { { "k", other } }));
    std::vector<std::string> objects { bytes("\xd1\1\2"), "\x51k" };
    for (char next = 3; next < 30; ++next)
        objects.push_back("\xae" + std::string(14, next));
    objects.emplace_back("\x09");
    EXPECT_EQ(parsePropertyList(binaryList(objects)), (PropertyList { { "k", other } }));
}

TEST(PropertyListLimits, AnObjectThatIsSharedCannotGrowWithoutBound) {
    constexpr std::size_t length = 1'000'000;
    constexpr std::size_t entries = 40;
    const auto list = [](std::size_t count) {
        return binaryList(
            { "\xdf\x11" + number(count, 2) + std::string(count, '\1') + std::string(count, '\2'), "\x51k",
                "\x4f\x12" + number(length, 4) + std::string(length, 'x') });
    };
    EXPECT_TRUE(parsePropertyList(list(20)));
    EXPECT_EQ(parsePropertyList(list(entries)), std::nullopt);
}

TEST(PropertyListLimits, MoreThanAFileMayHoldIsRefused) {
    const auto list = [](std::size_t blanks) { return "<dict>" + std::string(blanks, ' ') + "</dict>"; };
    EXPECT_TRUE(parsePropertyList(list(Formats::maxFileSize - list(0).size())));
    EXPECT_FALSE(parsePropertyList(list(Formats::maxFileSize)));
}

TEST(PropertyListLimits, DeclarationsAreBoundedAsInAnyDocument) {
    const auto list = [](const std::string &declarations) {
        return parsePropertyList(
            "<!DOCTYPE plist [" + declarations + "]><dict><key>k</key><string>&e;</string></dict>");
    };
    EXPECT_EQ(list("<!ENTITY e 'v'>"), (PropertyList { { "k", text("v") } }));
    EXPECT_EQ(list("<!ENTITY e SYSTEM 'file:///etc/hostname'>"), (PropertyList { { "k", text("") } }));
    std::string declarations;
    for (int entity = 0; entity <= 1'000; ++entity)
        declarations += "<!ENTITY e" + std::to_string(entity) + " 'v'>";
    EXPECT_EQ(list(declarations), std::nullopt);
    EXPECT_EQ(list("<!ENTITY e '&e;'>"), std::nullopt);
}

} // namespace
