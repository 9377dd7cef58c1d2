#include "Formats/XmlDocument.h"

#include "Tests/Formats/Bytes.h"
#include "Tests/ProcessorTime.h"
#include "Tests/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <fstream>
#include <vector>

#include <sys/inotify.h>
#include <unistd.h>

using Formats::XmlDocument;

namespace {

/// The text of the element `a` > `b`, of a document that has to be well-formed.
std::optional<std::string> textOf(const std::string &xml) {
    const auto document = XmlDocument::parse(xml);
    EXPECT_TRUE(document.has_value());
    return document ? document->root().text({ "a", "b" }) : std::nullopt;
}

bool isXml(const std::string &text) {
    return XmlDocument::parse(text).has_value();
}

struct TextRow {
    const char *name;
    std::string xml;
    std::optional<std::string> text;
};

const std::vector<TextRow> texts {
    { "Plain", "<a><b>text</b></a>", "text" },
    { "BlanksAreKept", "<a><b>  two  words\n</b></a>", "  two  words\n" },
    { "OnlyBlanksAreAText", "<a><b> </b></a>", " " },
    { "Cdata", "<a><b><![CDATA[<i>&amp;</i>]]></b></a>", "<i>&amp;</i>" },
    { "CdataAmongText", "<a><b>x<![CDATA[ & ]]>y</b></a>", "x & y" },
    { "CommentsAreNoText", "<a><b>x<!-- - -->y</b></a>", "xy" },
    { "HexadecimalReference", "<a><b>&#xe9;&#x1F512;</b></a>", "é🔒" },
    { "InternalEntity", "<!DOCTYPE a [<!ENTITY e 'value'>]><a><b>x&e;y</b></a>", "xvaluey" },
    { "AttributesAreNotRead", "<a><b text='no'>yes</b></a>", "yes" },
    { "EmptyCdata", "<a><b><![CDATA[]]></b></a>", "" },
    { "TextAroundAnElement", "<a><b>x<c>no</c>y</b></a>", "xy" },
    { "Empty", "<a><b></b></a>", std::nullopt },
    { "EmptyEntity", "<!DOCTYPE a [<!ENTITY e ''>]><a><b>&e;</b></a>", std::nullopt },
    { "SelfClosing", "<a><b/></a>", std::nullopt },
    { "OnlyAComment", "<a><b><!-- c --></b></a>", std::nullopt },
    { "Missing", "<a><c>text</c></a>", std::nullopt },
    { "OtherRoot", "<x><b>text</b></x>", std::nullopt },
    { "OtherCase", "<a><B>text</B></a>", std::nullopt },
    { "FirstOfSeveral", "<a><b>first</b><b>second</b></a>", "first" },
    { "FirstOfSeveralWithoutText", "<a><b/><b>second</b></a>", std::nullopt },
    { "DeclaredPrefixIsAnotherName", "<a xmlns:p='u'><p:b>text</p:b></a>", std::nullopt },
    { "DefaultNamespace", "<a xmlns='u'><b>text</b></a>", "text" },
    { "DeclaredUtf16IsIgnored", "<?xml version='1.0' encoding='UTF-16'?><a><b>é</b></a>", "é" },
    { "DeclaredLatin1IsIgnored", "<?xml version='1.0' encoding='ISO-8859-1'?><a><b>é€</b></a>", "é€" },
    { "UnknownEncodingIsIgnored", "<?xml version='1.0' encoding='bogus-8'?><a><b>é</b></a>", "é" },
    { "ByteOrderMark", "\xef\xbb\xbf<a><b>text</b></a>", "text" },
};

TEST(ElementText, IsItsOwnCharacters) {
    for (const auto &row : texts) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(textOf(row.xml), row.text);
    }
}

const std::vector<std::string> notWellFormed { "", " ", "text", "<", "<a>", "<a><b></a></b>",
    "<a></a><b></b>", "<a/>text", "text<a/>", "<a>&</a>", "<a>&undeclared;</a>", "<a x=1/>",
    "<a x='1' x='2'/>", "<a><![CDATA[</a>", "<a><!-- -- --></a>", "<a>]]></a>", " <?xml version='1.0'?><a/>",
    "<a>&#0;</a>", "<a>&#xD800;</a>", "<a>&#x110000;</a>", "<a>\u0001</a>", bytes("<a>\0</a>"),
    bytes("<a/>\0"), bytes("<a/>\0<b>"), bytes("\0"), "<a>\uffff</a>", "<a>\xe9</a>", "<a>\xed\xa0\x80</a>",
    "<!DOCTYPE a [<!ENTITY e '&e;'>]><a>&e;</a>", "{\"a\":1}" };

TEST(NotWellFormed, IsNoDocument) {
    for (const auto &row : notWellFormed) {
        SCOPED_TRACE(testing::PrintToString(row));
        EXPECT_FALSE(isXml(row));
    }
}

TEST(XmlElements, APathTakesAllThatMatchInDocumentOrder) {
    const auto document = XmlDocument::parse("<a><m><e>1</e><x/><e>2</e></m><y/><m><e>3</e><f>4</f></m></a>");
    ASSERT_TRUE(document);
    const auto root = document->root();
    std::string entries;
    for (const auto &element : root.all({ "a", "m", "e" }))
        entries += element.text({}).value_or("-");
    EXPECT_EQ(entries, "123");
    EXPECT_EQ(root.all({ "a", "m" }).size(), 2U);
    EXPECT_EQ(root.all({ "a", "m" })[1].text({ "e" }), "3");
    EXPECT_EQ(root.text({ "a", "m", "e" }), "1");
    EXPECT_EQ(root.text({ "a", "m", "f" }), "4"); // the first match, wherever it stands
    EXPECT_TRUE(root.all({ "a", "none" }).empty());
    EXPECT_TRUE(root.all({ "m" }).empty());
}

std::string numbered(const std::string &before, int count, const std::string &behind) {
    std::string result;
    for (int number = 0; number < count; ++number)
        result += before + std::to_string(number) + behind;
    return result;
}

std::string within(const std::string &content) {
    return "<a>" + content + "</a>";
}

std::string withDeclarations(const std::string &declarations, const std::string &document = "<a/>") {
    return "<!DOCTYPE a [" + declarations + "]>" + document;
}

/// Entities of which each stands in the next one `each` times, and a use of the last.
std::string entitiesInEntities(int levels, std::size_t each) {
    std::string declarations = "<!ENTITY e0 'ha'>";
    for (int level = 1; level <= levels; ++level)
        declarations += "<!ENTITY e" + std::to_string(level) + " '"
            + repeated("&e" + std::to_string(level - 1) + ";", each) + "'>";
    return withDeclarations(declarations,
        "<a><b c='&e" + std::to_string(levels) + ";'>&e" + std::to_string(levels) + ";</b></a>");
}

std::string fiveHundredAttributes() {
    return numbered("<!ATTLIST b a", 500, " CDATA 'v'>");
}

struct SizeRow {
    const char *name;
    std::string (*xml)(); ///< made only by its own test
    bool isRead;
};

const std::vector<SizeRow> hostileDocuments {
    { "Attributes", [] { return "<a" + numbered(" a", 90'000, "='>'") + "/>"; }, true },
    { "TagWithoutEnd", [] { return "<a" + numbered(" a", 900'000, "=''") + "/>"; }, false },
    { "AttributesOfOneTag", [] { return "<a" + numbered(" a", 300'000, "=''") + "/>"; }, false },
    { "AttributesOfManyElements", [] { return within(numbered("<b a", 60'000, "=''/>")); }, true },
    { "AttributesOfVeryManyElements", [] { return within(numbered("<b a", 200'000, "=''/>")); }, false },
    { "Namespaces",
        [] { return "<a" + numbered(" xmlns:p", 50'000, "='u'") + ">" + repeated("<c/>", 50'000) + "</a>"; },
        true },
    { "Prefixes", [] { return within(repeated("<p:b/>", 150'000)); }, true },
    { "Names", [] { return within(numbered("<e", 300'000, "/>")); }, true },
    { "VeryManyNames", [] { return within(numbered("<e", 1'000'000, "/>")); }, false },
    { "TenMegabytesOfText", [] { return within(repeated("=x\n", 3'300'000)); }, true },
    { "References", [] { return within(repeated("&lt;&#233;", 100'000)); }, true },
    { "Elements", [] { return within(repeated("<b/>", 250'000)); }, true },
    { "Entities", [] { return withDeclarations(numbered("<!ENTITY e", 900, " ''>")); }, true },
    { "VeryManyEntities", [] { return withDeclarations(numbered("<!ENTITY e", 60'000, " ''>")); }, false },
    { "DeclaredAttributes",
        [] { return withDeclarations(fiveHundredAttributes(), within(repeated("<b/>", 100))); }, true },
    { "DeclaredAttributesOfManyElements",
        [] { return withDeclarations(fiveHundredAttributes(), within(repeated("<b/>", 250'000))); }, false },
    { "AttributeDeclarations",
        [] { return withDeclarations(numbered("<!ATTLIST b a", 50'000, " CDATA 'v'>")); }, false },
    { "ShortEntityInALongText",
        [] {
            return withDeclarations(
                "<!ENTITY e 'x'>", within(std::string(500'000, 'y') + repeated("&e;", 150'000)));
        },
        true },
    { "LongEntity",
        [] {
            return withDeclarations(
                "<!ENTITY e '" + std::string(100'000, 'x') + "'>", within(repeated("&e;", 30'000)));
        },
        false },
    { "LongEntityInAttributes",
        [] {
            return withDeclarations(
                "<!ENTITY e '" + std::string(100'000, 'x') + "'>", within(repeated("<b c='&e;'/>", 30'000)));
        },
        false },
    { "EntitiesThatMultiply", [] { return entitiesInEntities(12, 10); }, false },
    { "EntitiesInARow", [] { return entitiesInEntities(900, 1); }, true },
    { "ParameterEntities",
        [] { return withDeclarations("<!ENTITY % p '<!ENTITY e \"x\">'>" + repeated("%p;", 300'000)); },
        true },
    { "Levels", [] { return repeated("<a>", 900) + repeated("</a>", 900); }, true },
    { "VeryManyLevels", [] { return repeated("<a>", 100'000) + repeated("</a>", 100'000); }, false },
    { "OpenElements", [] { return repeated("<a>", 300'000); }, false },
    { "TwentyFourMegabytesWithoutEnd", [] { return "<a>" + std::string(24'000'000, 'x'); }, false },
};

TEST(HostileDocument, IsReadOrRefusedAtOnce) {
    for (const auto &row : hostileDocuments) {
        SCOPED_TRACE(row.name);
        const auto xml = row.xml();
        EXPECT_LT(processorTimeOf([&] { EXPECT_EQ(isXml(xml), row.isRead); }), longestHold);
    }
}

TEST(XmlDocumentLimits, SignsOfMarkupInTextsAreOnlyText) {
    const std::string signs = repeated("=|", 10'000);
    EXPECT_EQ(textOf(within("<b>" + signs + "</b>")), signs);
    EXPECT_EQ(textOf(within("<b><![CDATA[" + signs + "]]></b>")), signs);
    EXPECT_EQ(textOf(within("<!-- " + signs + " --><b c='" + signs + "'>x</b><?p " + signs + "?>")), "x");
}

TEST(XmlDocumentLimits, AnEntityThatALongTextIsFullOfIsRead) {
    EXPECT_TRUE(textOf(withDeclarations("<!ENTITY company 'Example Limited'>",
                    within("<b>" + repeated("&company; ", 20'000) + "</b>")))
        == repeated("Example Limited ", 20'000));
}

TEST(XmlDocumentLimits, ALongTextIsReadWhole) {
    const std::size_t count = 250'000;
    const auto document = within("<b>" + repeated("é\r\n🔒&lt;<!---->", count) + "</b>");
    EXPECT_TRUE(textOf(document) == repeated("é\n🔒<", count));
}

TEST(XmlDocumentLimits, NothingOfATextGoesToStandardError) {
    testing::internal::CaptureStderr();
    for (const auto *xml :
        { "<a", "<a></b>", "<a>&e;</a>", "<!DOCTYPE a [<!ENTITY e ''><!ENTITY e ''>]><a/>" })
        isXml(xml);
    isXml(entitiesInEntities(12, 10));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

/// A file that reports whether it is opened.
class XmlReachingOut : public testing::TestWithParam<const char *> {
protected:
    XmlReachingOut() {
        std::ofstream(file_) << "outside";
        ::inotify_add_watch(watch_, file_.c_str(), IN_OPEN | IN_ACCESS);
    }
    ~XmlReachingOut() override { ::close(watch_); }

    bool fileWasOpened() const {
        char event[4096];
        return ::read(watch_, event, sizeof event) > 0;
    }

    const int watch_ = ::inotify_init1(IN_NONBLOCK);
    const TemporaryFolder folder_;
    const std::filesystem::path file_ = folder_.path() / "outside.txt";
};

TEST_P(XmlReachingOut, ReadsNothingOutsideTheText) {
    for (const auto &address : { file_.string(), "file://" + file_.string() }) {
        SCOPED_TRACE(address);
        std::string xml = GetParam();
        xml.replace(xml.find("ADDRESS"), 7, address);
        const auto document = XmlDocument::parse(xml);
        ASSERT_TRUE(document);
        EXPECT_EQ(document->root().text({ "a", "b" }), "xy");
        EXPECT_FALSE(fileWasOpened());
    }
}

INSTANTIATE_TEST_SUITE_P(Documents, XmlReachingOut,
    testing::Values("<!DOCTYPE a [<!ENTITY e SYSTEM 'ADDRESS'>]><a><b>x&e;y</b></a>",
        "<!DOCTYPE a [<!ENTITY e PUBLIC 'p' 'ADDRESS'>]><a><b>x&e;y</b></a>",
        "<!DOCTYPE a SYSTEM 'ADDRESS'><a><b>x&e;y</b></a>",
        "<!DOCTYPE a PUBLIC 'p' 'ADDRESS'><a><b>xy</b></a>",
        "<!DOCTYPE a [<!ENTITY % p SYSTEM 'ADDRESS'> %p;]><a><b>xy</b></a>",
        "<!DOCTYPE a [<!NOTATION n SYSTEM 'ADDRESS'>]><a><b>xy</b></a>",
        "<a xmlns:i='http://www.w3.org/2001/XInclude'><b>x<i:include href='ADDRESS' parse='text'/>y</b></a>",
        "<?xml-stylesheet href='ADDRESS' type='text/xsl'?><a><b>xy</b></a>"));

// The watch itself works: without this the tests above could not fail.
TEST_F(XmlReachingOut, TheWatchSeesAnOpenFile) {
    std::ifstream(file_).get();
    EXPECT_TRUE(fileWasOpened());
    EXPECT_FALSE(fileWasOpened());
}

} // namespace
