#include "Support/XmlDocument.h"

#include "Tests/Platform/PrintQt.h"
#include "Tests/Support/ProcessorTime.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include <arpa/inet.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

/// The text of the element `a` > `b`, of a document that has to be well-formed.
std::optional<QString> textOf(const QString &xml) {
    const auto document = XmlDocument::parse(xml);
    EXPECT_TRUE(document.has_value());
    return document ? document->root().text({ "a", "b" }) : std::nullopt;
}

bool isXml(const QString &text) {
    return XmlDocument::parse(text).has_value();
}

struct TextRow {
    const char *name;
    QString xml;
    std::optional<QString> text;
};

void PrintTo(const TextRow &row, std::ostream *stream) {
    *stream << row.name;
}

class ElementText : public testing::TestWithParam<TextRow> { };

TEST_P(ElementText, IsItsOwnCharacters) {
    EXPECT_EQ(textOf(GetParam().xml), GetParam().text);
}

const std::vector<TextRow> texts {
    { "Plain", "<a><b>text</b></a>", "text" },
    { "BlanksAreKept", "<a><b>  two  words\n</b></a>", "  two  words\n" },
    { "OnlyBlanksAreAText", "<a><b> </b></a>", " " },
    { "LineBreaksBecomeLineFeeds", "<a><b>x\r\ny\rz</b></a>", "x\ny\nz" },
    { "Cdata", "<a><b><![CDATA[<i>&amp;</i>]]></b></a>", "<i>&amp;</i>" },
    { "CdataAmongText", "<a><b>x<![CDATA[ & ]]>y</b></a>", "x & y" },
    { "CommentsAreNoText", "<a><b>x<!-- - -->y</b></a>", "xy" },
    { "InstructionsAreNoText", "<a><b>x<?target data?>y</b></a>", "xy" },
    { "PredefinedEntities", "<a><b>&lt;&gt;&amp;&quot;&apos;</b></a>", "<>&\"'" },
    { "DecimalReference", "<a><b>&#233;&#10;</b></a>", QStringLiteral(u"é\n") },
    { "HexadecimalReference", "<a><b>&#xe9;&#x1F512;</b></a>", QStringLiteral(u"é\U0001f512") },
    { "InternalEntity", "<!DOCTYPE a [<!ENTITY e 'value'>]><a><b>x&e;y</b></a>", "xvaluey" },
    { "EntityInEntity", "<!DOCTYPE a [<!ENTITY e '1'><!ENTITY f '&e;&e;'>]><a><b>&f;</b></a>", "11" },
    { "OtherScripts", QStringLiteral(u"<a><b>日本語 עברית \U0001f512</b></a>"),
        QStringLiteral(u"日本語 עברית \U0001f512") },
    { "AttributesAreNotRead", "<a><b text='no'>yes</b></a>", "yes" },
    { "Empty", "<a><b></b></a>", std::nullopt },
    { "SelfClosing", "<a><b/></a>", std::nullopt },
    { "OnlyAComment", "<a><b><!-- c --></b></a>", std::nullopt },
    { "OnlyAnElement", "<a><b><c>text</c></b></a>", std::nullopt },
    { "Missing", "<a><c>text</c></a>", std::nullopt },
    { "TextBesideTheElement", "<a>text</a>", std::nullopt },
    { "OtherRoot", "<x><b>text</b></x>", std::nullopt },
    { "Deeper", "<a><c><b>text</b></c></a>", std::nullopt },
    { "OtherCase", "<a><B>text</B></a>", std::nullopt },
    { "LongerName", "<a><bb>text</bb></a>", std::nullopt },
    { "FirstOfSeveral", "<a><b>first</b><b>second</b></a>", "first" },
    { "FirstOfSeveralWithoutText", "<a><b/><b>second</b></a>", std::nullopt },
    { "DeclaredPrefixIsAnotherName", "<a xmlns:p='u'><p:b>text</p:b></a>", std::nullopt },
    { "DefaultNamespace", "<a xmlns='u'><b>text</b></a>", "text" },
    { "Declaration", "<?xml version='1.0'?><a><b>text</b></a>", "text" },
    { "DeclaredUtf8", "<?xml version='1.0' encoding='UTF-8'?><a><b>é</b></a>", QStringLiteral(u"é") },
    { "DeclaredUtf16IsIgnored", "<?xml version='1.0' encoding='UTF-16'?><a><b>é</b></a>",
        QStringLiteral(u"é") },
    { "DeclaredUtf16BigEndianIsIgnored", "<?xml version='1.0' encoding='UTF-16BE'?><a><b>é</b></a>",
        QStringLiteral(u"é") },
    { "DeclaredUcs4IsIgnored", "<?xml version='1.0' encoding='UCS-4'?><a><b>é</b></a>",
        QStringLiteral(u"é") },
    { "DeclaredLatin1IsIgnored", "<?xml version='1.0' encoding='ISO-8859-1'?><a><b>é\u20ac</b></a>",
        QStringLiteral(u"é\u20ac") },
    { "DeclaredAsciiIsIgnored", "<?xml version='1.0' encoding='US-ASCII'?><a><b>é</b></a>",
        QStringLiteral(u"é") },
    { "DeclaredShiftJisIsIgnored", "<?xml version='1.0' encoding='Shift_JIS'?><a><b>é</b></a>",
        QStringLiteral(u"é") },
    { "UnknownEncodingIsIgnored", "<?xml version='1.0' encoding='bogus-8'?><a><b>é</b></a>",
        QStringLiteral(u"é") },
    { "ByteOrderMark", QStringLiteral(u"\ufeff<a><b>text</b></a>"), "text" },
    { "ByteOrderMarkAndDeclaration",
        QStringLiteral(u"\ufeff<?xml version='1.0' encoding='UTF-8'?><a><b>text</b></a>"), "text" },
    { "DocumentType", "<!DOCTYPE a><a><b>text</b></a>", "text" },
    { "BlanksBehindTheRoot", "<a><b>text</b></a>\n\n", "text" },
    { "CommentBeforeTheRoot", "<!-- c --><a><b>text</b></a>", "text" },
};
INSTANTIATE_TEST_SUITE_P(
    Documents, ElementText, testing::ValuesIn(texts), [](const auto &row) { return row.param.name; });

class NotWellFormed : public testing::TestWithParam<QString> { };

TEST_P(NotWellFormed, IsNoDocument) {
    EXPECT_FALSE(isXml(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Texts, NotWellFormed,
    testing::Values(QString(), QStringLiteral(" "), QStringLiteral("text"), QStringLiteral("<"),
        QStringLiteral("<a>"), QStringLiteral("<a><b></a></b>"), QStringLiteral("<a></a><b></b>"),
        QStringLiteral("<a/>text"), QStringLiteral("text<a/>"), QStringLiteral("<a>&</a>"),
        QStringLiteral("<a>&undeclared;</a>"), QStringLiteral("<a x=1/>"), QStringLiteral("<a x='1' x='2'/>"),
        QStringLiteral("<a><![CDATA[</a>"), QStringLiteral("<a><!-- -- --></a>"),
        QStringLiteral("<a>]]></a>"), QStringLiteral(" <?xml version='1.0'?><a/>"),
        QStringLiteral("<a>&#0;</a>"), QStringLiteral("<a>&#xD800;</a>"), QStringLiteral("<a>&#x110000;</a>"),
        QStringLiteral("<a>\u0001</a>"), QStringLiteral(u"<a>\0</a>"), QStringLiteral(u"<a/>\0"),
        QStringLiteral(u"<a/>\0<b>"), QString(QChar(u'\0')), QStringLiteral(u"<a>\uffff</a>"),
        QStringLiteral("<!DOCTYPE a [<!ENTITY e '&e;'>]><a>&e;</a>"), QStringLiteral("{\"a\":1}")));

class LoneSurrogate : public testing::TestWithParam<char16_t> { };

TEST_P(LoneSurrogate, NeverReachesATextAsItIs) {
    const QChar surrogate(GetParam());
    const auto document = XmlDocument::parse(QStringLiteral("<a><b>x%1y</b></a>").arg(surrogate));
    if (document) {
        const auto text = document->root().text({ "a", "b" });
        ASSERT_TRUE(text.has_value());
        EXPECT_TRUE(text->isValidUtf16());
    }
    // In a name there is nothing to put in its place.
    EXPECT_FALSE(isXml(QStringLiteral("<a%1/>").arg(surrogate)));
}

INSTANTIATE_TEST_SUITE_P(Halves, LoneSurrogate, testing::Values(u'\xd800', u'\xdbff', u'\xdc00', u'\xdfff'));

TEST(XmlElements, AllThatAPathReachesComeInDocumentOrder) {
    const auto document
        = XmlDocument::parse(QStringLiteral("<a><m><e>1</e><x/><e>2</e></m><y/><m><e>3</e></m></a>"));
    ASSERT_TRUE(document);
    EXPECT_EQ(document->root().all({ "a", "m", "e" }).size(), 3U);
    EXPECT_EQ(document->root().all({ "a", "m" }).size(), 2U);
    EXPECT_EQ(document->root().all({ "a", "m" })[1].text({ "e" }), QStringLiteral("3"));
    EXPECT_EQ(document->root().all({ "a", "m" })[0].text({ "e" }), QStringLiteral("1"));
    EXPECT_TRUE(document->root().all({ "a", "none" }).empty());
    EXPECT_TRUE(document->root().all({ "m" }).empty());
}

TEST(XmlDocumentLimits, TenThousandLevelsAreHarmless) {
    constexpr int levels = 10'000;
    const auto nested = QStringLiteral("<a>").repeated(levels) + QStringLiteral("</a>").repeated(levels);
    const auto document = XmlDocument::parse(nested); // refused, or read without harm
    if (document) {
        EXPECT_EQ(document->root().all({ "a", "a", "a" }).size(), 1U);
    }
    EXPECT_FALSE(isXml(QStringLiteral("<a>").repeated(levels)));
}

TEST(XmlDocumentLimits, AMillionLevelsAreHarmless) {
    constexpr int levels = 1'000'000;
    EXPECT_FALSE(isXml(QStringLiteral("<a>").repeated(levels) + QStringLiteral("</a>").repeated(levels)));
}

TEST(XmlDocumentLimits, EntitiesThatMultiplyAreRefused) {
    QString laughs = QStringLiteral("<!DOCTYPE a [<!ENTITY e0 'ha'>");
    for (int level = 1; level <= 12; ++level) {
        const auto inner = QStringLiteral("&e%1;").arg(level - 1).repeated(10);
        laughs += QStringLiteral("<!ENTITY e%1 '%2'>").arg(QString::number(level), inner);
    }
    EXPECT_FALSE(isXml(laughs + QStringLiteral("]><a><b>&e12;</b></a>")));
}

TEST(XmlDocumentLimits, ALongEntityUsedManyTimesIsRefused) {
    const auto entity = QString(100'000, u'x');
    EXPECT_FALSE(isXml(QStringLiteral("<!DOCTYPE a [<!ENTITY e '%1'>]><a><b>").arg(entity)
        + QStringLiteral("&e;").repeated(30'000) + QStringLiteral("</b></a>")));
}

TEST(XmlDocumentLimits, EntitiesInAttributesAreBoundedAsWell) {
    const auto entity = QString(100'000, u'x');
    EXPECT_FALSE(isXml(QStringLiteral("<!DOCTYPE a [<!ENTITY e '%1'>]><a>").arg(entity)
        + QStringLiteral("<b c='&e;'/>").repeated(30'000) + QStringLiteral("</a>")));
}

TEST(XmlDocumentLimits, AParameterEntityBombIsRefused) {
    QString bomb = QStringLiteral("<!DOCTYPE a [<!ENTITY % p0 'x'>");
    for (int level = 1; level <= 12; ++level) {
        const auto inner = QStringLiteral("&#37;p%1;").arg(level - 1).repeated(10);
        bomb += QStringLiteral("<!ENTITY % p%1 \"%2\">").arg(QString::number(level), inner);
    }
    const auto document = XmlDocument::parse(bomb + QStringLiteral(" %p12; ]><a><b>x</b></a>"));
    EXPECT_FALSE(document.has_value());
}

TEST(XmlDocumentLimits, AShortEntityUsedVeryOftenIsBounded) {
    // Each use makes the text before it be measured anew.
    const auto xml = QStringLiteral("<!DOCTYPE a [<!ENTITY e 'x'>]><a><b>") + QString(5'000'000, u'y')
        + QStringLiteral("&e;").repeated(1'000'000) + QStringLiteral("</b></a>");
    EXPECT_FALSE(isXml(xml));
}

TEST(XmlDocumentLimits, AnEntityThatALongTextIsFullOfIsRead) {
    constexpr qsizetype uses = 20'000;
    const auto xml = QStringLiteral("<!DOCTYPE a [<!ENTITY company 'Example Limited'>]><a><b>")
        + QStringLiteral("&company; ").repeated(uses) + QStringLiteral("</b></a>");
    EXPECT_TRUE(textOf(xml) == QStringLiteral("Example Limited ").repeated(uses));
}

TEST(XmlDocumentLimits, PredefinedEntitiesMayStandAnyNumberOfTimes) {
    const auto xml = QStringLiteral("<a><b>") + QStringLiteral("&lt;&#233;").repeated(500'000)
        + QStringLiteral("</b></a>");
    EXPECT_EQ(textOf(xml), QStringLiteral(u"<é").repeated(500'000));
}

QString manyAttributes(int count) {
    QString attributes;
    for (int number = 0; number < count; ++number)
        attributes += QStringLiteral(" a%1='>'").arg(number);
    return attributes;
}

TEST(XmlDocumentLimits, ATagOfVeryManyAttributesIsRefused) {
    const auto attributes = manyAttributes(100'000);
    EXPECT_FALSE(isXml(QStringLiteral("<a%1/>").arg(attributes)));
    EXPECT_FALSE(isXml(QStringLiteral("<a><!-- ' --><b%1>x</b></a>").arg(attributes)));
    EXPECT_FALSE(
        isXml(QStringLiteral("<!DOCTYPE a [<!ENTITY e \"&#60;b%1/>\">]><a>&e;</a>").arg(attributes)));
    EXPECT_FALSE(isXml(QStringLiteral("<!DOCTYPE a [<!ENTITY e \"<b%1/>\">]><a>&e;</a>").arg(attributes)));
}

TEST(XmlDocumentLimits, ATagOfSomeAttributesIsRead) {
    EXPECT_EQ(textOf(QStringLiteral("<a%1><b%1>x</b></a>").arg(manyAttributes(100))), "x");
}

/// Elements within each other that declare so many namespaces each, around a text.
QString namespacesInScope(int levels, int each, const QString &text) {
    QString xml;
    for (int level = 0; level < levels; ++level) {
        xml += QStringLiteral("<a");
        for (int number = 0; number < each; ++number)
            xml += QStringLiteral(" xmlns:p%1_%2='u'").arg(level).arg(number);
        xml += u'>';
    }
    return xml + text + QStringLiteral("</a>").repeated(levels);
}

TEST(XmlDocumentLimits, VeryManyNamespacesAtOnceAreRefused) {
    // Unbounded, each of the elements within would take as long as there are namespaces.
    EXPECT_FALSE(isXml(namespacesInScope(200, 100, QStringLiteral("<c/>").repeated(200'000))));
    EXPECT_FALSE(isXml(namespacesInScope(1, 100'000, QString())));
}

TEST(XmlDocumentLimits, SomeNamespacesAreRead) {
    EXPECT_TRUE(isXml(namespacesInScope(100, 2, QStringLiteral("<p0_0:c/>").repeated(1000))));
    // Those that are over do not count.
    EXPECT_TRUE(isXml(QStringLiteral("<r>") + namespacesInScope(1, 100, QString()).repeated(1000)
        + QStringLiteral("</r>")));
}

QString numbered(const QString &form, int count) {
    QString text;
    for (int number = 0; number < count; ++number)
        text += form.arg(number);
    return text;
}

TEST(XmlDocumentLimits, VeryManyDifferentNamesAreRefused) {
    constexpr int many = 300'000;
    EXPECT_FALSE(isXml(QStringLiteral("<a>%1</a>").arg(numbered(QStringLiteral("<e%1/>"), many))));
    EXPECT_FALSE(isXml(QStringLiteral("<a>%1</a>").arg(numbered(QStringLiteral("<?e%1?>"), many))));
    EXPECT_FALSE(isXml(QStringLiteral("<a>%1</a>").arg(numbered(QStringLiteral("<e e%1=''/>"), many))));
    for (const auto *declaration :
        { "<!ELEMENT e%1 ANY>", "<!NOTATION e%1 SYSTEM ''>", "<!ENTITY e%1 ''>", "<!ATTLIST e%1>" })
        EXPECT_FALSE(
            isXml(QStringLiteral("<!DOCTYPE a [%1]><a/>").arg(numbered(QLatin1String(declaration), many))));
}

TEST(XmlDocumentLimits, SomeThousandDifferentNamesAreRead) {
    EXPECT_TRUE(
        isXml(QStringLiteral("<a>%1</a>").arg(numbered(QStringLiteral("<e%1/>"), 3'000).repeated(100))));
}

TEST(XmlDocumentLimits, VeryManyValuesOfADeclaredAttributeAreRefused) {
    const auto document = [](const char *kind, int values) {
        return QStringLiteral("<!DOCTYPE a [<!ATTLIST a b %1 (v%2) #IMPLIED>]><a/>")
            .arg(QLatin1String(kind), numbered(QStringLiteral("|v%1"), values));
    };
    for (const auto *kind : { "", "NOTATION" }) {
        EXPECT_TRUE(isXml(document(kind, 500)));
        EXPECT_FALSE(isXml(document(kind, 200'000)));
    }
    const auto declaration
        = QStringLiteral("<!ATTLIST a b (v%1) #IMPLIED>").arg(numbered(QStringLiteral("|v%1"), 200'000));
    EXPECT_FALSE(isXml(QStringLiteral("<!DOCTYPE a [<!ENTITY % p \"%1\">%p;]><a/>").arg(declaration)));
}

TEST(XmlDocumentLimits, VerticalBarsInTextsAreNoValues) {
    const QString bars(10'000, u'|');
    EXPECT_EQ(textOf(QStringLiteral("<a><!-- %1 --><b c='%1'>%1</b></a>").arg(bars)), bars);
}

TEST(XmlDocumentLimits, VeryManyPrefixesWithoutNamespaceAreRefused) {
    EXPECT_TRUE(isXml(QStringLiteral("<a>%1</a>").arg(QStringLiteral("<p:b/>").repeated(10'000))));
    EXPECT_FALSE(isXml(QStringLiteral("<a>%1</a>").arg(QStringLiteral("<p:b/>").repeated(1'000'000))));
}

TEST(XmlDocumentLimits, NothingOfATextGoesToStandardError) {
    testing::internal::CaptureStderr();
    for (const auto *xml :
        { "<a", "<a></b>", "<p:a/>", "<a>&e;</a>", "<!DOCTYPE a [<!ELEMENT a ANY><!ELEMENT a ANY>]><a/>",
            "<!DOCTYPE a [<!NOTATION n SYSTEM ''><!NOTATION n SYSTEM ''>]><a/>",
            "<!DOCTYPE a [<!ENTITY e ''><!ENTITY e ''>]><a/>",
            "<!DOCTYPE a [<!ATTLIST a b ID #IMPLIED c ID #IMPLIED b (x|x) 'y'>]><a b='z'/>",
            "<!DOCTYPE a [<!ENTITY e SYSTEM 'file:///outside'>]><a>&e;</a>" })
        isXml(QLatin1String(xml));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(XmlDocumentLimits, EqualsSignsInTextsAreNoAttributes) {
    const QString signs(10'000, u'=');
    EXPECT_EQ(textOf(QStringLiteral("<a><b>%1</b></a>").arg(signs)), signs);
    EXPECT_EQ(textOf(QStringLiteral("<a><b><![CDATA[%1]]></b></a>").arg(signs)), signs);
    EXPECT_EQ(textOf(QStringLiteral("<a><!-- %1 --><b c='%1'>x</b><?p %1?></a>").arg(signs)), "x");
}

TEST(XmlDocumentLimits, DeclaredAttributesAreBounded) {
    QString declarations;
    for (int number = 0; number < 500; ++number)
        declarations += QStringLiteral("<!ATTLIST b a%1 CDATA 'value'>").arg(number);
    const auto document = [&declarations](qsizetype elements) {
        return QStringLiteral("<!DOCTYPE a [%1]><a>").arg(declarations)
            + QStringLiteral("<b/>").repeated(elements) + QStringLiteral("</a>");
    };
    EXPECT_TRUE(isXml(document(1)));
    EXPECT_FALSE(isXml(document(1'000'000))); // a few megabytes of text, and tens of gigabytes of attributes
    EXPECT_FALSE(isXml(QStringLiteral("<!DOCTYPE a [%1]><a/>")
                           .arg(QStringLiteral("<!ATTLIST b x CDATA #IMPLIED>").repeated(200'000))));
}

TEST(XmlDocumentLimits, NineMegabytesInManyElementsAreRead) {
    constexpr qsizetype elements = 9'000;
    const auto xml = QStringLiteral("<a>")
        + QStringLiteral("<b>%1</b>").arg(QString(1000, u'x')).repeated(elements) + QStringLiteral("</a>");
    const auto document = XmlDocument::parse(xml);
    ASSERT_TRUE(document);
    EXPECT_EQ(document->root().all({ "a", "b" }).size(), static_cast<std::size_t>(elements));
}

TEST(XmlDocumentLimits, SixtyFourMegabytesOfTextAreWholeOrRefused) {
    constexpr qsizetype length = 64 * 1024 * 1024;
    auto xml = QStringLiteral("<a><b>");
    xml.append(QString(length, u'x')).append(QStringLiteral("</b></a>"));
    const auto document = XmlDocument::parse(xml);
    if (document) {
        EXPECT_EQ(document->root().text({ "a", "b" }).value_or(QString()).size(), length);
    }
}

TEST(XmlDocumentLimits, ReadingTakesTimeInProportion) {
    const auto timeFor = [](qsizetype elements) {
        const auto xml = QStringLiteral("<a>") + QStringLiteral("<b>text</b>").repeated(elements)
            + QStringLiteral("</a>");
        return leastProcessorTime([&xml, elements] {
            const auto document = XmlDocument::parse(xml);
            EXPECT_EQ(document->root().all({ "a", "b" }).size(), static_cast<std::size_t>(elements));
        });
    };
    // Ten times the elements: about ten times the time, and not a hundred times.
    EXPECT_LT(timeFor(200'000), 50 * timeFor(20'000));
}

TEST(XmlDocumentThreads, AnyThreadMayParse) {
    std::atomic<int> right = 0;
    std::vector<std::thread> threads;
    for (int count = 0; count < 4; ++count) {
        threads.emplace_back([&right] {
            for (int run = 0; run < 200; ++run) {
                const auto document
                    = XmlDocument::parse(QStringLiteral("<!DOCTYPE a [<!ENTITY e 'v'>]><a><b>&e;</b></a>"));
                right += document && document->root().text({ "a", "b" }) == QStringLiteral("v");
                right += !XmlDocument::parse(QStringLiteral("<a>"));
            }
        });
    }
    for (auto &thread : threads)
        thread.join();
    EXPECT_EQ(right, 4 * 200 * 2);
}

TEST(XmlDocumentValue, CanBeMoved) {
    auto first = XmlDocument::parse(QStringLiteral("<a><b>1</b></a>"));
    ASSERT_TRUE(first);
    auto second = std::move(*first);
    second = std::move(*XmlDocument::parse(QStringLiteral("<a><b>2</b></a>")));
    EXPECT_EQ(second.root().text({ "a", "b" }), QStringLiteral("2"));
}

/// A file and a server on the loopback address that tell whether anybody asked for them.
class XmlReachingOut : public testing::TestWithParam<const char *> {
protected:
    void SetUp() override {
        file_ = folder_.filePath(QStringLiteral("outside.txt"));
        QFile file(file_);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("outside");
        file.close();
        watch_ = ::inotify_init1(IN_NONBLOCK);
        ASSERT_GE(::inotify_add_watch(watch_, QFile::encodeName(file_).constData(), IN_OPEN | IN_ACCESS), 0);

        server_ = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
        sockaddr_in address {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        auto *generic = static_cast<sockaddr *>(static_cast<void *>(&address));
        ASSERT_EQ(::bind(server_, generic, length), 0);
        ASSERT_EQ(::listen(server_, 4), 0);
        ASSERT_EQ(::getsockname(server_, generic, &length), 0);
        url_ = QStringLiteral("http://127.0.0.1:%1/outside").arg(ntohs(address.sin_port));
    }
    void TearDown() override {
        ::close(watch_);
        ::close(server_);
    }

    bool fileWasOpened() const {
        char event[4096];
        return ::read(watch_, event, sizeof event) > 0;
    }
    bool serverWasAsked() const {
        const int client = ::accept(server_, nullptr, nullptr);
        if (client >= 0)
            ::close(client);
        return client >= 0;
    }

    QTemporaryDir folder_;
    QString file_;
    QString url_;
    int watch_ = -1;
    int server_ = -1;
};

TEST_P(XmlReachingOut, ReadsNothingOutsideTheText) {
    for (const auto &address : { file_, QStringLiteral("file://") + file_, url_ }) {
        SCOPED_TRACE(address.toStdString());
        const auto document
            = XmlDocument::parse(QString::fromUtf8(GetParam()).replace(QLatin1String("ADDRESS"), address));
        if (document) {
            EXPECT_FALSE(document->root().text({ "a", "b" }).value_or(QString()).contains(u"outside"));
        }
        EXPECT_FALSE(fileWasOpened());
        EXPECT_FALSE(serverWasAsked());
    }
}

INSTANTIATE_TEST_SUITE_P(Documents, XmlReachingOut,
    testing::Values("<!DOCTYPE a [<!ENTITY e SYSTEM 'ADDRESS'>]><a><b>&e;</b></a>",
        "<!DOCTYPE a [<!ENTITY e PUBLIC 'p' 'ADDRESS'>]><a><b>x&e;y</b></a>",
        "<!DOCTYPE a SYSTEM 'ADDRESS'><a><b>&e;</b></a>", "<!DOCTYPE a PUBLIC 'p' 'ADDRESS'><a><b>x</b></a>",
        "<!DOCTYPE a [<!ENTITY % p SYSTEM 'ADDRESS'> %p;]><a><b>x</b></a>",
        "<!DOCTYPE a [<!ENTITY e SYSTEM 'ADDRESS'>]><a><b c='&e;'>x</b></a>",
        "<!DOCTYPE a [<!NOTATION n SYSTEM 'ADDRESS'><!ENTITY e SYSTEM 'ADDRESS' NDATA n>]><a><b>x</b></a>",
        "<a xmlns:i='http://www.w3.org/2001/XInclude'><b><i:include href='ADDRESS' parse='text'/></b></a>",
        "<?xml-stylesheet href='ADDRESS' type='text/xsl'?><a><b>x</b></a>",
        "<a xmlns:s='http://www.w3.org/2001/XMLSchema-instance' s:schemaLocation='u ADDRESS'><b>x</b></a>"));

// The watch itself works: without this the tests above could not fail.
TEST_F(XmlReachingOut, TheWatchSeesAnOpenFileAndAnAskingClient) {
    QFile file(file_);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_TRUE(fileWasOpened());
    EXPECT_FALSE(fileWasOpened());
    EXPECT_FALSE(serverWasAsked());
    const int client = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address {};
    socklen_t length = sizeof address;
    auto *generic = static_cast<sockaddr *>(static_cast<void *>(&address));
    ASSERT_EQ(::getsockname(server_, generic, &length), 0);
    ASSERT_EQ(::connect(client, generic, length), 0);
    EXPECT_TRUE(serverWasAsked());
    ::close(client);
}

} // namespace
