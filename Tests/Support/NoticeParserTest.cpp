#include "Support/NoticeParser.h"

#include "Tests/Fakes/RecordingLog.h"
#include "Tests/Platform/PrintQt.h"
#include "Tests/ProcessorTime.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace {

constexpr auto largest = std::numeric_limits<std::int64_t>::max();
constexpr auto smallest = std::numeric_limits<std::int64_t>::min();

QString notice(const QString &inner) {
    return QStringLiteral("<zelvik-secure-access><notifications>") + inner
        + QStringLiteral("</notifications></zelvik-secure-access>");
}

QString entries(const QString &inner) {
    return notice(QStringLiteral("<metadata>") + inner + QStringLiteral("</metadata>"));
}

/// Of a text that has to be a notice.
SocketPayload parsed(const QString &xml) {
    const auto payload = parseNotice(xml);
    EXPECT_TRUE(payload.has_value());
    return payload.value_or(SocketPayload());
}

const SocketPayload defaults { .module = QStringLiteral(" by "),
    .information = {},
    .timeout = 10,
    .titleLabels = {},
    .details = {},
    .activityUrl = {} };

TEST(NoticeParser, ReadsEveryElement) {
    const auto payload = parsed(notice(QStringLiteral(
        "<module>CASB</module><head>Blocked</head><body>Uploads are not allowed.</body><timeout>7</timeout>"
        "<metadata><md><name>Activity</name><val>Upload</val></md>"
        "<md><name>Application</name><val>Files</val></md>"
        "<md><name>URL</name><val>https://files.example</val></md></metadata>"
        "<url><ok>https://gateway.example/close?id=1&amp;x=2</ok></url>")));
    EXPECT_EQ(payload.module, "Blocked by CASB");
    EXPECT_EQ(payload.information, "Uploads are not allowed.");
    EXPECT_EQ(payload.timeout, 7);
    EXPECT_EQ(payload.titleLabels,
        QStringList({ QStringLiteral("Activity"), QStringLiteral("Application"), QStringLiteral("URL") }));
    EXPECT_EQ(payload.details,
        QStringList(
            { QStringLiteral("Upload"), QStringLiteral("Files"), QStringLiteral("https://files.example") }));
    EXPECT_EQ(payload.activityUrl, "https://gateway.example/close?id=1&x=2");
}

TEST(NoticeDefaults, AreTakenForWhatIsMissing) {
    for (const auto &xml : { notice(QString()), QStringLiteral("<zelvik-secure-access/>"),
             QStringLiteral(
                 "<other><notifications><head>h</head><timeout>5</timeout></notifications></other>"),
             "<other>" + notice("<head>h</head>") + "</other>",
             QStringLiteral("<notifications><head>h</head></notifications>"),
             notice("<module/><head></head><body/><timeout/><metadata/><url><ok/></url>"),
             notice("<Head>h</Head><TIMEOUT>5</TIMEOUT>"),
             notice("<p:head xmlns:p='u'>h</p:head><p:timeout xmlns:p='u'>5</p:timeout>"),
             notice("<head text='h'/><timeout value='5'/>"),
             notice("<x><head>h</head><timeout>5</timeout></x>"), notice("<url>https://a.example</url>"),
             notice("<md><name>n</name><val>v</val></md>"), entries("<mdx><name>n</name></mdx>") }) {
        SCOPED_TRACE(xml.toStdString());
        EXPECT_EQ(parsed(xml), defaults);
    }
}

TEST(NoticeParser, AnEntryWithoutNameOrValueKeepsItsPlace) {
    const auto payload = parsed(entries(QStringLiteral(
        "<md><name>n1</name><val>v1</val></md><md><name>n2</name></md><md><val>v3</val></md><md/>"
        "<md>text</md><md><name/><val></val></md><md><name>n7</name><val>v7</val></md>")));
    EXPECT_EQ(payload.titleLabels,
        QStringList({ QStringLiteral("n1"), QStringLiteral("n2"), {}, {}, {}, {}, QStringLiteral("n7") }));
    EXPECT_EQ(payload.details,
        QStringList({ QStringLiteral("v1"), {}, QStringLiteral("v3"), {}, {}, {}, QStringLiteral("v7") }));
}

TEST(NoticeParser, OfARepeatedElementTheFirstCounts) {
    const auto payload = parsed(notice(QStringLiteral(
        "<head>1</head><head>2</head><timeout>3</timeout><timeout>4</timeout><body>5</body><body>6</body>"
        "<metadata><md><name>7</name><name>8</name><val>9</val><val>10</val></md></metadata>"
        "<url><ok>11</ok><ok>12</ok></url>")));
    EXPECT_EQ(payload,
        (SocketPayload { QStringLiteral("1 by "), QStringLiteral("5"), 3, { QStringLiteral("7") },
            { QStringLiteral("9") }, QStringLiteral("11") }));
}

TEST(NoticeParser, ATimeoutWithoutTextIsTenAndAnEmptyTextIsZero) {
    EXPECT_EQ(parsed(notice(QString())).timeout, 10);
    EXPECT_EQ(parsed(notice(QStringLiteral("<timeout></timeout>"))).timeout, 10);
    EXPECT_EQ(parsed(notice(QStringLiteral("<timeout/>"))).timeout, 10);
    EXPECT_EQ(parsed(notice(QStringLiteral("<timeout><![CDATA[]]></timeout>"))).timeout, 0);
    EXPECT_EQ(parsed(notice(QStringLiteral("<timeout><![CDATA[7]]></timeout>"))).timeout, 7);
}

TEST(NoticeParser, APathGoesThroughAllElementsOfAName) {
    const auto payload = parsed(QStringLiteral(
        "<zelvik-secure-access>"
        "<notifications><module>m</module><metadata><md><name>1</name></md></metadata><metadata/></"
        "notifications>"
        "<notifications><module>no</module><head>h</head><timeout>7</timeout>"
        "<metadata><md><name>2</name></md></metadata><metadata><md><name>3</name><val>v</val></md></metadata>"
        "<url/><url><ok>u</ok></url></notifications></zelvik-secure-access>"));
    EXPECT_EQ(payload,
        (SocketPayload { QStringLiteral("h by m"), {}, 7,
            { QStringLiteral("1"), QStringLiteral("2"), QStringLiteral("3") },
            { {}, {}, QStringLiteral("v") }, QStringLiteral("u") }));
}

TEST(NoticeParser, TheSessionNoticeHasTheSameTitle) {
    const auto xml = notice(QStringLiteral("<module>m</module><head>h</head><body> b\n</body>"));
    EXPECT_EQ(parseSessionNotice(xml).title, "h by m");
    EXPECT_EQ(parseSessionNotice(xml).body, " b\n");
    EXPECT_EQ(parseSessionNotice(notice(QStringLiteral("<head>h</head>"))).title, "h by ");
    EXPECT_EQ(parseSessionNotice(notice(QStringLiteral("<module>m</module>"))).title, " by m");
    for (const auto &empty : { notice(QString()), QStringLiteral("<a>"), QString() }) {
        EXPECT_EQ(parseSessionNotice(empty).title, " by ");
        EXPECT_EQ(parseSessionNotice(empty).body, "");
    }
}

const std::vector<char16_t> halves { u'\xd800', u'\xdbff', u'\xdc00', u'\xdfff' };

TEST(LoneSurrogate, NeverReachesATextAsItIs) {
    for (const auto &row : halves) {
        SCOPED_TRACE(int(row));
        const auto payload = parseNotice(notice(QStringLiteral("<body>x%1y</body>").arg(QChar(row))));
        ASSERT_TRUE(payload);
        EXPECT_TRUE(payload->information.isValidUtf16());
        // In a name there is nothing to put in its place.
        EXPECT_FALSE(isXml(QStringLiteral("<a%1/>").arg(QChar(row))));
    }
}

struct IntegerRow {
    QString text;
    std::int64_t value;
};

const std::vector<IntegerRow> decimals { { "0", 0 }, { "7", 7 }, { "+7", 7 }, { "-3", -3 }, { "007", 7 },
    { "-0", 0 }, { "+0", 0 }, { "30", 30 }, { "9223372036854775807", largest },
    { "+9223372036854775807", largest }, { "-9223372036854775808", smallest },
    { "00000000000000000000000000000000000000042", 42 },
    // Anything else is 0.
    { "9223372036854775808", 0 }, { "-9223372036854775809", 0 }, { "18446744073709551617", 0 },
    { "99999999999999999999999999", 0 }, { " ", 0 }, { "+", 0 }, { "-", 0 }, { "+-7", 0 }, { "-+7", 0 },
    { "--7", 0 }, { "++7", 0 }, { " 7", 0 }, { "7 ", 0 }, { "7\n", 0 }, { "\t7", 0 }, { "+ 7", 0 },
    { "7a", 0 }, { "a7", 0 }, { "7.0", 0 }, { "7,0", 0 }, { "1e3", 0 }, { "0x10", 0 }, { "1_000", 0 },
    { "1 000", 0 }, { "7-", 0 }, { "ten", 0 }, { QStringLiteral(u"\uff17"), 0 },
    { QStringLiteral(u"\u0667"), 0 }, { QStringLiteral(u"\u22127"), 0 }, { QStringLiteral(u"7\u00a0"), 0 } };

TEST(DecimalInteger, IsOneSignAndDigitsOrZero) {
    for (const auto &row : decimals) {
        SCOPED_TRACE(row.text.toStdString());
        EXPECT_EQ(parsed(notice(QStringLiteral("<timeout>%1</timeout>").arg(row.text))).timeout, row.value);
    }
}

TEST(NoticeParser, ATextThatIsNoXmlIsNothingAndIsNotLogged) {
    Journal journal;
    const RecordingLog log(journal);
    for (const auto *text : { "", "no notice", "<zelvik-secure-access>", "<a></b>" })
        EXPECT_EQ(parseNotice(QString::fromLatin1(text)), std::nullopt);
    EXPECT_TRUE(journal.lines().empty());
}

TEST(NoticeParser, ANoticeIsLoggedWithItsWholeText) {
    Journal journal;
    const RecordingLog log(journal);
    const auto xml = notice(QStringLiteral(u"<body>{} %s é</body>"));
    parsed(xml);
    EXPECT_THAT(journal.lines(),
        testing::ElementsAre("debug [Controllers/ViewController updateNotificationWindow(xmlStr:)] "
                             "Parsing websocket response: "
            + xml.toStdString()));
}

TEST(NoticeParser, AHundredThousandEntriesTakeTimeInProportion) {
    const auto timeFor = [](qsizetype count) {
        const auto xml = entries(QStringLiteral("<md><name>n</name><val>v</val></md>").repeated(count));
        return leastProcessorTime([&xml, count] {
            const auto payload = parsed(xml);
            EXPECT_EQ(payload.titleLabels.size(), count);
            EXPECT_EQ(payload.details.size(), count);
        });
    };
    EXPECT_LT(timeFor(100'000), 50 * timeFor(10'000));
}

} // namespace
