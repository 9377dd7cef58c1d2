#include "Platform/PropertyList.h"

#include "Tests/Platform/PrintQt.h"
#include "Tests/Platform/RawBundle.h"

#include <QDateTime>
#include <QtEndian>

#include <gtest/gtest.h>
#include <plist/plist.h>

#include <cstdlib>
#include <limits>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

std::optional<QVariant> parsedXml(const QByteArray &value) {
    return PropertyList::parse(RawBundle::propertyList(value));
}

QByteArray asBinary(const QByteArray &xml) {
    plist_t list = nullptr;
    plist_from_xml(xml.constData(), static_cast<std::uint32_t>(xml.size()), &list);
    char *bytes = nullptr;
    std::uint32_t length = 0;
    plist_to_bin(list, &bytes, &length);
    const QByteArray binary(bytes, static_cast<qsizetype>(length));
    std::free(bytes);
    plist_free(list);
    EXPECT_TRUE(binary.startsWith("bplist00"));
    return binary;
}

QVariant date(int year, int month, int day, int hour, int minute, int second) {
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second), Qt::UTC);
}

struct Row {
    const char *name;
    QByteArray element;
    QVariant value;
};

void PrintTo(const Row &row, std::ostream *stream) {
    *stream << row.name;
}

class PropertyListValue : public testing::TestWithParam<Row> {
protected:
    static void expectIs(const std::optional<QVariant> &value, const QVariant &expected) {
        ASSERT_TRUE(value.has_value());
        EXPECT_EQ(value->metaType().id(), expected.metaType().id())
            << value->metaType().name() << " instead of " << expected.metaType().name();
        EXPECT_EQ(*value, expected);
    }
};

TEST_P(PropertyListValue, HasItsTypeInXml) {
    expectIs(parsedXml(GetParam().element), GetParam().value);
}

TEST_P(PropertyListValue, HasItsTypeInBinary) {
    expectIs(PropertyList::parse(asBinary(RawBundle::propertyList(GetParam().element))), GetParam().value);
}

TEST_P(PropertyListValue, HasItsTypeInsideADictionary) {
    const auto xml
        = RawBundle::propertyList("<dict><key>k</key><array>" + GetParam().element + "</array></dict>");
    for (const auto &bytes : { xml, asBinary(xml) }) {
        const auto list = PropertyList::parse(bytes);
        ASSERT_TRUE(list.has_value());
        const auto values = list->toMap().value(QStringLiteral("k")).toList();
        ASSERT_EQ(values.size(), 1);
        expectIs(values.front(), GetParam().value);
    }
}

const std::vector<Row> values {
    { "True", "<true/>", true },
    { "False", "<false/>", false },
    { "Zero", "<integer>0</integer>", qlonglong(0) },
    { "One", "<integer>1</integer>", qlonglong(1) },
    { "Integer", "<integer>120</integer>", qlonglong(120) },
    { "IntegerOf16Bits", "<integer>40000</integer>", qlonglong(40000) },
    { "IntegerOf32Bits", "<integer>4000000000</integer>", qlonglong(4000000000) },
    { "LargestSigned", "<integer>9223372036854775807</integer>", std::numeric_limits<qlonglong>::max() },
    { "LargestUnsigned", "<integer>18446744073709551615</integer>", std::numeric_limits<qulonglong>::max() },
    { "MinusOne", "<integer>-1</integer>", qlonglong(-1) },
    { "Minus120", "<integer>-120</integer>", qlonglong(-120) },
    { "Smallest", "<integer>-9223372036854775808</integer>", std::numeric_limits<qlonglong>::min() },
    { "Real", "<real>1.5</real>", 1.5 },
    { "NegativeReal", "<real>-0.25</real>", -0.25 },
    { "WholeReal", "<real>30</real>", 30.0 },
    { "String", "<string>zelvik</string>", QStringLiteral("zelvik") },
    { "EmptyString", "<string></string>", QString(QLatin1String("")) },
    { "NumberAsString", "<string>30</string>", QStringLiteral("30") },
    { "StringWithBlanks", "<string> a  b </string>", QStringLiteral(" a  b ") },
    { "OtherScripts", "<string>\xc3\xa9 \xe6\x97\xa5 \xf0\x9f\x94\x92</string>",
        QStringLiteral(u"é 日 \U0001f512") },
    { "References", "<string>&lt;&amp;&gt;&quot;</string>", QStringLiteral("<&>\"") },
    { "Data", "<data>AP9h</data>", QByteArray("\0\xff\x61", 3) },
    { "DataOnLines", "<data>\n\tAP9h\n\tYQ==\n</data>", QByteArray("\0\xff\x61\x61", 4) },
    { "Date", "<date>2024-02-29T12:34:56Z</date>", date(2024, 2, 29, 12, 34, 56) },
    { "DateBefore2001", "<date>1999-12-31T23:59:59Z</date>", date(1999, 12, 31, 23, 59, 59) },
    { "EmptyArray", "<array/>", QVariantList() },
    { "Array", "<array><true/><string>a</string></array>", QVariantList { true, QStringLiteral("a") } },
    { "EmptyDictionary", "<dict/>", QVariantMap() },
    { "Dictionary", "<dict><key>a</key><true/><key>b</key><dict><key>c</key><string>d</string></dict></dict>",
        QVariantMap { { "a", true }, { "b", QVariantMap { { "c", QStringLiteral("d") } } } } },
};
INSTANTIATE_TEST_SUITE_P(
    Types, PropertyListValue, testing::ValuesIn(values), [](const auto &row) { return row.param.name; });

TEST(PropertyListTest, EmptyDataIsData) {
    const auto value = parsedXml("<data></data>");
    ASSERT_TRUE(value.has_value());
    EXPECT_EQ(value->metaType().id(), QMetaType::QByteArray);
    EXPECT_TRUE(value->toByteArray().isEmpty());
}

TEST(PropertyListTest, CommentsAndADocumentTypeAreSkipped) {
    const auto list = PropertyList::parse("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                          "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                                          "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                                          "<plist version=\"1.0\"><!-- c --><dict><!-- c --><key>a</key><!-- "
                                          "c --><string>b</string></dict></plist>");
    ASSERT_TRUE(list.has_value());
    EXPECT_EQ(*list, QVariant(QVariantMap { { "a", QStringLiteral("b") } }));
}

TEST(PropertyListTest, OfAKeyThatStandsTwiceOneValueIsTaken) {
    const auto list = parsedXml("<dict><key>a</key><string>1</string><key>a</key><string>2</string></dict>");
    ASSERT_TRUE(list.has_value());
    EXPECT_EQ(list->toMap().size(), 1);
    EXPECT_EQ(list->toMap().firstKey(), "a");
}

class NoPropertyList : public testing::TestWithParam<QByteArray> { };

TEST_P(NoPropertyList, IsNothing) {
    EXPECT_EQ(PropertyList::parse(GetParam()), std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(Bytes, NoPropertyList,
    testing::Values(QByteArray(), QByteArray("\0", 1), QByteArray("text"), QByteArray("<"),
        QByteArray("<plist"), QByteArray("<plist><dict><key>a</key>"),
        QByteArray("<plist><dict><key>a</key><string>b</dict></plist>"),
        QByteArray("<plist><dict><string>b</string></dict></plist>"), QByteArray("bplist"),
        QByteArray("bplist00"), "bplist00" + QByteArray(24, '\0'), "bplist00" + QByteArray(32, '\0'),
        "bplist00" + QByteArray(32, '\xff'), "bplist00" + QByteArray(1000, '\xd1')));

TEST(PropertyListTest, ABinaryListCutAnywhereIsHarmless) {
    const auto whole
        = asBinary(RawBundle::propertyList("<dict><key>a</key><array><string>text</string><integer>-5</"
                                           "integer><data>AP9h</data></array></dict>"));
    for (qsizetype length = 0; length < whole.size(); ++length)
        PropertyList::parse(whole.left(length));
    auto flipped = whole;
    for (qsizetype index = 8; index < flipped.size(); ++index) {
        flipped[index] = static_cast<char>(flipped[index] ^ 0x55);
        PropertyList::parse(flipped);
        flipped[index] = whole[index];
    }
    EXPECT_TRUE(PropertyList::parse(whole).has_value());
}

QByteArray nestedXml(int levels) {
    return RawBundle::propertyList(
        QByteArray("<array>").repeated(levels) + QByteArray("</array>").repeated(levels));
}

/// A binary list of containers, one inside the other `levels` times, each naming the next one `width` times.
QByteArray nestedBinary(int levels, int width) {
    const auto number = [](quint32 value) {
        value = qToBigEndian(value);
        return QByteArray(reinterpret_cast<const char *>(&value), sizeof value);
    };
    QByteArray bytes("bplist00");
    QByteArray table;
    for (int level = 0; level < levels; ++level) {
        table += number(static_cast<quint32>(bytes.size()));
        const bool isLast = level + 1 == levels;
        bytes += isLast ? '\x09' : static_cast<char>(0xa0 + width);
        if (!isLast)
            bytes += number(static_cast<quint32>(level + 1)).repeated(width);
    }
    const auto start = static_cast<quint32>(bytes.size());
    return bytes + table + QByteArray("\0\0\0\0\0\0\4\4", 8) + QByteArray(4, '\0')
        + number(static_cast<quint32>(levels)) + QByteArray(12, '\0') + number(start);
}

TEST(PropertyListLimits, SomeLevelsAreRead) {
    EXPECT_TRUE(PropertyList::parse(nestedXml(20)).has_value());
    EXPECT_TRUE(PropertyList::parse(nestedBinary(20, 1)).has_value());
}

TEST(PropertyListLimits, VeryManyLevelsAreRefused) {
    for (const int levels : { 1'000, 100'000, 1'000'000 }) {
        EXPECT_EQ(PropertyList::parse(nestedXml(levels)), std::nullopt);
        EXPECT_EQ(PropertyList::parse(nestedBinary(levels, 1)), std::nullopt);
    }
    EXPECT_EQ(PropertyList::parse("<plist>" + QByteArray("<array>").repeated(2'000'000)), std::nullopt);
    EXPECT_EQ(PropertyList::parse("<plist>" + QByteArray("<array><!--</array>-->").repeated(700'000)),
        std::nullopt);
    EXPECT_EQ(
        PropertyList::parse("<plist>" + QByteArray("<dict><key>a</key>").repeated(900'000)), std::nullopt);
}

TEST(PropertyListLimits, AFewBytesCannotStandForVeryManyValues) {
    EXPECT_EQ(PropertyList::parse(nestedBinary(30, 14)), std::nullopt);
    EXPECT_EQ(PropertyList::parse(nestedBinary(12, 10)), std::nullopt);
}

TEST(PropertyListLimits, AContainerInsideItselfIsRefused) {
    auto bytes = nestedBinary(2, 1);
    bytes[12] = '\0'; // the reference's last byte: the array names itself
    EXPECT_EQ(PropertyList::parse(bytes), std::nullopt);
}

TEST(PropertyListLimits, AListOfManyValuesIsRead) {
    const auto xml = RawBundle::propertyList(
        "<array>" + QByteArray("<dict><key>a</key><string>b</string></dict>").repeated(5'000) + "</array>");
    for (const auto &bytes : { xml, asBinary(xml) }) {
        const auto list = PropertyList::parse(bytes);
        ASSERT_TRUE(list.has_value());
        EXPECT_EQ(list->toList().size(), 5'000);
    }
}

class PropertyListFile : public testing::Test {
protected:
    QString path(const char *name = "file") const { return folder_.filePath(QString::fromLatin1(name)); }
    void expectNothing() const {
        EXPECT_EQ(PropertyList::readBytes(path()), std::nullopt);
        EXPECT_EQ(PropertyList::read(path()), std::nullopt);
    }

    QTemporaryDir folder_;
};

TEST_F(PropertyListFile, IsRead) {
    RawBundle::write(path(), RawBundle::propertyList("<string>a</string>"));
    EXPECT_EQ(PropertyList::read(path()), QVariant(QStringLiteral("a")));
    EXPECT_EQ(PropertyList::readBytes(path()), RawBundle::propertyList("<string>a</string>"));
}

TEST_F(PropertyListFile, BehindALinkIsRead) {
    RawBundle::write(path("target"), "bytes");
    ASSERT_TRUE(QFile::link(path("target"), path()));
    EXPECT_EQ(PropertyList::readBytes(path()), QByteArray("bytes"));
}

TEST_F(PropertyListFile, EmptyHasNoBytes) {
    RawBundle::write(path(), "");
    ASSERT_TRUE(PropertyList::readBytes(path()).has_value());
    EXPECT_TRUE(PropertyList::readBytes(path())->isEmpty());
    EXPECT_EQ(PropertyList::read(path()), std::nullopt);
}

TEST_F(PropertyListFile, MissingIsNothing) {
    expectNothing();
    EXPECT_EQ(PropertyList::readBytes(QString()), std::nullopt);
}

TEST_F(PropertyListFile, AFolderIsNothing) {
    QDir().mkpath(path());
    expectNothing();
}

TEST_F(PropertyListFile, AFifoIsNothingAndHoldsNothingUp) {
    ASSERT_EQ(::mkfifo(QFile::encodeName(path()).constData(), 0600), 0);
    expectNothing();
}

TEST_F(PropertyListFile, ASocketIsNothing) {
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    const auto name = QFile::encodeName(path());
    ASSERT_LT(static_cast<std::size_t>(name.size()), sizeof address.sun_path);
    std::copy(name.begin(), name.end(), address.sun_path);
    ASSERT_EQ(::bind(socket, static_cast<sockaddr *>(static_cast<void *>(&address)), sizeof address), 0);
    expectNothing();
    ::close(socket);
}

TEST_F(PropertyListFile, ADeviceIsNothing) {
    ASSERT_TRUE(QFile::link(QStringLiteral("/dev/zero"), path()));
    expectNothing();
}

TEST_F(PropertyListFile, ALinkToItselfIsNothing) {
    ASSERT_EQ(::symlink("file", QFile::encodeName(path()).constData()), 0);
    expectNothing();
}

TEST_F(PropertyListFile, TheLargestIsReadAndALargerOneIsNot) {
    QFile file(path());
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    ASSERT_TRUE(file.resize(PropertyList::largestFile)); // without any block on the disk
    ASSERT_TRUE(PropertyList::readBytes(path()).has_value());
    EXPECT_EQ(PropertyList::readBytes(path())->size(), PropertyList::largestFile);
    ASSERT_TRUE(file.resize(PropertyList::largestFile + 1));
    expectNothing();
    ASSERT_TRUE(file.resize(1LL << 40));
    expectNothing();
}

TEST_F(PropertyListFile, NoDescriptorIsLeftOpen) {
    RawBundle::write(path(), "bytes");
    const auto openDescriptors = [] { return QDir(QStringLiteral("/proc/self/fd")).entryList().size(); };
    const auto before = openDescriptors();
    for (int count = 0; count < 10; ++count) {
        PropertyList::readBytes(path());
        PropertyList::readBytes(folder_.path());
    }
    EXPECT_EQ(openDescriptors(), before);
}

} // namespace
