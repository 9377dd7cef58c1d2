#include "Platform/Image.h"

#include "Tests/Platform/DesktopTest.h"
#include "Tests/Platform/PrintQt.h"
#include "Tests/Platform/RawBundle.h"
#include "Tests/Platform/WaitUntil.h"
#include "Tests/ProcessorTime.h"

#include <QBuffer>
#include <QImage>
#include <QImageWriter>
#include <QStringConverter>
#include <QtEndian>

#include <chrono>
#include <functional>
#include <vector>

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QByteArray bytesOf(const QSize &size, const QColor &color = Qt::red, const char *format = "PNG") {
    QImage image(size, QImage::Format_ARGB32);
    image.fill(color);
    QBuffer buffer;
    EXPECT_TRUE(image.save(&buffer, format));
    return buffer.data();
}

QByteArray drawing(const QByteArray &content, const QByteArray &attributes = "width='64' height='32'") {
    return "<svg xmlns='http://www.w3.org/2000/svg' xmlns:xlink='http://www.w3.org/1999/xlink' " + attributes
        + ">" + content + "</svg>";
}

const QByteArray fullGreen("<rect x='-10' y='-10' width='10000' height='10000' fill='#00ff00'/>");

QColor centre(const QImage &image) {
    return image.pixelColor(image.width() / 2, image.height() / 2);
}

class ImageTest : public DesktopTest {
protected:
    std::optional<Image> named(const QString &name = QStringLiteral("logo")) const {
        return Image::named(bundle_.open(), name);
    }
    void add(const char *file, const QByteArray &bytes) const {
        bundle_.writeResource(QString::fromLatin1(file), bytes);
    }

    RawBundle bundle_;
};

TEST_F(ImageTest, EveryFormatIsDecoded) {
    std::vector<QByteArray> pictures { QByteArray(
        "GIF89a\2\0\1\0\x80\0\0\0\0\xff\0\0\xff\x2c\0\0\0\0\2\0\1\0\0\2\2\4\n\0\x3b", 36) };
    for (const char *format : { "PNG", "JPEG", "BMP", "ICO" })
        pictures.push_back(bytesOf({ 40, 20 }, Qt::blue, format));
    for (const auto &picture : pictures) {
        SCOPED_TRACE(picture.left(8).toStdString());
        const auto image = Image::withData(picture);
        ASSERT_TRUE(image.has_value());
        EXPECT_EQ(image->size().width(), 2 * image->size().height());
        const auto color = centre(image->scaledToFit({ 40, 20 }, 1));
        EXPECT_GT(color.blue(), 240);
        EXPECT_LT(color.red(), 15);
    }
}

TEST_F(ImageTest, ADrawingIsDrawnInAnySize) {
    const auto image = Image::withData(drawing(fullGreen));
    ASSERT_TRUE(image.has_value());
    EXPECT_EQ(image->size(), QSize(64, 32));
    for (const double scale : { 1.0, 1.5, 2.0, 3.0 }) {
        const auto drawn = image->scaledToFit({ 64, 32 }, scale);
        EXPECT_EQ(drawn.size(), QSize(64, 32) * scale);
        EXPECT_EQ(drawn.devicePixelRatio(), scale);
        EXPECT_EQ(centre(drawn), QColor(0, 255, 0));
    }
}

TEST_F(ImageTest, ADrawingMayBeginWithDeclarationMarkAndComment) {
    for (const auto *beginning :
        { "<?xml version='1.0' encoding='UTF-8'?>\n", "\xef\xbb\xbf", " \n<!-- c -->\n",
            "<!DOCTYPE svg PUBLIC '-//W3C//DTD SVG 1.1//EN' "
            "'http://www.w3.org/Graphics/SVG/1.1/DTD/svg11.dtd'>" }) {
        EXPECT_TRUE(Image::withData(beginning + drawing(fullGreen)).has_value()) << beginning;
    }
}

TEST_F(ImageTest, ADrawingWithoutASizeTakesThatOfItsBox) {
    const auto image = Image::withData(drawing(fullGreen, "viewBox='0 0 120 40'"));
    ASSERT_TRUE(image.has_value());
    EXPECT_EQ(image->size(), QSize(120, 40));
}

TEST_F(ImageTest, OfSeveralSizesTheOneForTheScaleIsDrawn) {
    add("logo.png", bytesOf({ 60, 20 }, Qt::red));
    add("logo@2x.png", bytesOf({ 120, 40 }, Qt::blue));
    const auto image = named();
    ASSERT_TRUE(image.has_value());
    EXPECT_EQ(image->size(), QSize(60, 20));
    EXPECT_EQ(centre(image->scaledToFit({ 60, 20 }, 1)), QColor(Qt::red));
    EXPECT_EQ(centre(image->scaledToFit({ 60, 20 }, 2)), QColor(Qt::blue));
    EXPECT_EQ(image->scaledToFit({ 60, 20 }, 2).size(), QSize(120, 40));
    EXPECT_EQ(centre(image->scaledToFit({ 60, 20 }, 1.5)), QColor(Qt::blue))
        << "rather made smaller than larger";
    EXPECT_EQ(centre(image->scaledToFit({ 60, 20 }, 3)), QColor(Qt::blue));
    EXPECT_EQ(centre(image->scaledToFit({ 30, 10 }, 1)), QColor(Qt::red));
}

TEST_F(ImageTest, ALargeSizeAloneCountsAtItsScale) {
    add("logo@2x.png", bytesOf({ 120, 40 }));
    const auto image = named();
    ASSERT_TRUE(image.has_value());
    EXPECT_EQ(image->size(), QSize(60, 20));
}

TEST_F(ImageTest, ANameMayHaveItsEnding) {
    add("logo.png", bytesOf({ 60, 20 }, Qt::red));
    add("logo@2x.png", bytesOf({ 120, 40 }, Qt::blue));
    add("logo.svg", drawing(fullGreen));
    const auto image = named(QStringLiteral("logo.png"));
    ASSERT_TRUE(image.has_value());
    EXPECT_EQ(centre(image->scaledToFit({ 60, 20 }, 2)), QColor(Qt::blue));
    EXPECT_EQ(centre(image->scaledToFit({ 60, 20 }, 3)), QColor(Qt::blue)) << "no file of another kind";
    EXPECT_EQ(named(QStringLiteral("logo.svg")).value_or(Image()).size(), QSize(64, 32));
    EXPECT_FALSE(named(QStringLiteral("logo.jpg")).has_value());
}

TEST_F(ImageTest, ADrawingStandsInForSizesThatAreMissing) {
    add("logo.png", bytesOf({ 64, 32 }, Qt::red));
    add("logo.svg", drawing(fullGreen));
    const auto image = named();
    ASSERT_TRUE(image.has_value());
    EXPECT_EQ(centre(image->scaledToFit({ 64, 32 }, 1)), QColor(Qt::red));
    EXPECT_EQ(centre(image->scaledToFit({ 64, 32 }, 1.25)), QColor(0, 255, 0));
    EXPECT_EQ(centre(image->scaledToFit({ 34, 17 }, 1)), QColor(0, 255, 0));
    EXPECT_EQ(centre(image->scaledToFit({ 32, 16 }, 1)), QColor(Qt::red)) << "twice as large is as good";
}

TEST_F(ImageTest, ABrokenSizeIsPassedOver) {
    add("logo.png", "broken");
    add("logo@2x.png", bytesOf({ 120, 40 }, Qt::blue));
    const auto image = named();
    ASSERT_TRUE(image.has_value());
    EXPECT_EQ(centre(image->scaledToFit({ 60, 20 }, 1)), QColor(Qt::blue));
}

TEST_F(ImageTest, AMissingOrBrokenImageIsNone) {
    EXPECT_FALSE(named().has_value());
    add("logo.png", "broken");
    EXPECT_FALSE(named().has_value());
    add("logo.png", "");
    EXPECT_FALSE(named().has_value());
    QDir().mkpath(bundle_.resource(QStringLiteral("folder.png")));
    EXPECT_FALSE(named(QStringLiteral("folder")).has_value());
    EXPECT_FALSE(named(QString()).has_value());
}

TEST_F(ImageTest, ANameIsNeverAPath) {
    RawBundle::write(bundle_.contents() + QStringLiteral("/outside.png"), bytesOf({ 10, 10 }));
    EXPECT_FALSE(named(QStringLiteral("../outside")).has_value());
    EXPECT_FALSE(named(bundle_.contents() + QStringLiteral("/outside")).has_value());
}

TEST_F(ImageTest, TheFormatIsToldByTheBytesAndNotByTheName) {
    add("logo.png", drawing(fullGreen));
    const auto image = named();
    ASSERT_TRUE(image.has_value());
    EXPECT_EQ(centre(image->scaledToFit({ 64, 32 }, 1)), QColor(0, 255, 0));
}

struct FitRow {
    const char *name;
    QSize picture;
    QSize box;
    double scale;
    QSize drawn; ///< in device pixels
};

const std::vector<FitRow> fits {
    { "Exact", { 200, 32 }, { 200, 32 }, 1, { 200, 32 } },
    { "Wide", { 2000, 20 }, { 200, 32 }, 1, { 200, 2 } },
    { "VeryWide", { 8000, 1 }, { 200, 32 }, 1, { 200, 1 } },
    { "Tall", { 20, 2000 }, { 200, 32 }, 1, { 1, 32 } },
    { "Tiny", { 1, 1 }, { 200, 32 }, 1, { 32, 32 } },
    { "Large", { 2000, 320 }, { 200, 32 }, 1, { 200, 32 } },
    { "HalfAScale", { 200, 32 }, { 200, 32 }, 1.5, { 300, 48 } },
    { "TwiceTheScale", { 200, 32 }, { 200, 32 }, 2, { 400, 64 } },
    { "NoBox", { 200, 32 }, { 0, 0 }, 1, { 1, 1 } },
};

TEST_F(ImageTest, KeepsItsProportionsWithinTheBox) {
    for (const auto &row : fits) {
        SCOPED_TRACE(row.name);
        const auto image = Image::withData(bytesOf(row.picture));
        ASSERT_TRUE(image.has_value());
        const auto drawn = image->scaledToFit(row.box, row.scale);
        EXPECT_EQ(drawn.size(), row.drawn);
        EXPECT_EQ(drawn.devicePixelRatio(), row.scale);
    }
}

/// As a chunk of a PNG ends.
quint32 checksumOf(const QByteArray &chunk) {
    quint32 checksum = 0xffffffff;
    for (const char byte : chunk) {
        checksum ^= static_cast<unsigned char>(byte);
        for (int bit = 0; bit < 8; ++bit)
            checksum = checksum & 1 ? checksum >> 1 ^ 0xedb88320 : checksum >> 1;
    }
    return ~checksum;
}

/// A PNG whose header claims that size.
QByteArray claiming(quint32 width, quint32 height) {
    auto png = bytesOf({ 1, 1 });
    const auto put = [&png](qsizetype position, quint32 value) {
        value = qToBigEndian(value);
        png.replace(position, 4, QByteArray(reinterpret_cast<const char *>(&value), 4));
    };
    put(16, width);
    put(20, height);
    put(29, checksumOf(png.mid(12, 17)));
    return png;
}

TEST_F(ImageTest, AHeaderThatClaimsTooMuchIsRefused) {
    EXPECT_TRUE(Image::withData(claiming(1, 1)).has_value()) << "the checksum of the others is right, too";
    EXPECT_FALSE(Image::withData(claiming(65535, 65535)).has_value());
    EXPECT_FALSE(Image::withData(claiming(2147483647, 2147483647)).has_value());
    EXPECT_FALSE(Image::withData(claiming(4294967295, 1)).has_value());
    EXPECT_FALSE(Image::withData(claiming(1000000, 1)).has_value());
    EXPECT_FALSE(Image::withData(claiming(0, 0)).has_value());
}

TEST_F(ImageTest, ADrawingThatClaimsTooMuchIsRefused) {
    EXPECT_FALSE(Image::withData(drawing(fullGreen, "width='1000000' height='1000000'")).has_value());
    EXPECT_FALSE(Image::withData(drawing(fullGreen, "width='1e30' height='1e30'")).has_value());
    EXPECT_FALSE(Image::withData(drawing(fullGreen, "viewBox='0 0 1000000 10'")).has_value());
}

TEST_F(ImageTest, BytesOfNoImageAreNone) {
    for (const auto &bytes :
        { QByteArray(), QByteArray("\0", 1), QByteArray("no image"), QByteArray(100'000, 'x'),
            QByteArray("\x89PNG\r\n\x1a\n"), QByteArray("\xff\xd8\xff"), QByteArray("GIF89a"),
            QByteArray("BM"), QByteArray("\0\0\1\0", 4), QByteArray("<svg"), QByteArray("<svg>"),
            QByteArray("<svg/>"), QByteArray("<html><body/></html>"), QByteArray("<?xml version='1.0'?><a/>"),
            QByteArray("/* XPM */ static char *x[] = { \"1 1 1 1\", \"a c red\", \"a\" };"),
            QByteArray("P1 1 1 1"), QByteArray("%PDF-1.4"), QByteArray("\x1f\x8b\x08\0\0\0\0\0", 8) })
        EXPECT_FALSE(Image::withData(bytes).has_value()) << bytes.left(100).toStdString();
}

TEST_F(ImageTest, AHeaderWithoutItsPictureIsNone) {
    for (const char *format : { "PNG", "JPEG", "ICO" }) { // what a BMP has of its lines is shown
        const auto whole = bytesOf({ 300, 200 }, Qt::red, format);
        EXPECT_FALSE(Image::withData(whole.left(60)).has_value()) << format;
    }
}

TEST_F(ImageTest, ADrawingThatRefersOrActsIsRefused) {
    for (const auto *content : { "<image xlink:href='file:///a.png' width='64' height='32'/>",
             "<image xlink:href='http://a.example/' width='64' height='32'/>",
             "<use xlink:href='http://a.example/#a'/>", "<script>window.open()</script>",
             "<style>@import url(http://a.example/);</style>",
             "<rect width='64' height='32'><animate attributeName='x' to='9'/></rect>" })
        EXPECT_FALSE(Image::withData(drawing(fullGreen + content)).has_value()) << content;
    const auto text = drawing("<text>&e;</text>");
    for (const auto *entity : { "'lol'", "SYSTEM 'file:///a'" })
        EXPECT_FALSE(
            Image::withData("<!DOCTYPE svg [<!ENTITY e " + QByteArray(entity) + ">]>" + text).has_value())
            << entity;
}

/// A drawing that refers to something outside itself, and a file that tells whether it was opened.
class ImageReachingOut : public ImageTest, public testing::WithParamInterface<const char *> {
protected:
    void SetUp() override {
        file_ = bundle_.contents() + QStringLiteral("/outside.png");
        RawBundle::write(file_, bytesOf({ 64, 32 }, Qt::blue));
        watch_ = ::inotify_init1(IN_NONBLOCK);
        ASSERT_GE(::inotify_add_watch(watch_, QFile::encodeName(file_).constData(), IN_OPEN), 0);
    }
    void TearDown() override { ::close(watch_); }

    bool fileWasOpened() const {
        char event[4096];
        return ::read(watch_, event, sizeof event) > 0;
    }

    QString file_;
    int watch_ = -1;
};

TEST_P(ImageReachingOut, ReadsNoFileInAnyEncoding) {
    for (const auto &address : { file_, QStringLiteral("file://") + file_ }) {
        const auto text = QString::fromLatin1(GetParam()).replace(QStringLiteral("ADDRESS"), address);
        for (int encoding = 0; encoding <= QStringConverter::LastEncoding; ++encoding) {
            for (const auto flag : { QStringConverter::Flag::Default, QStringConverter::Flag::WriteBom }) {
                QStringEncoder encoder(static_cast<QStringConverter::Encoding>(encoding), flag);
                SCOPED_TRACE(encoder.name());
                const QByteArray bytes = encoder.encode(text);
                if (const auto image = Image::withData(bytes))
                    image->scaledToFit({ 64, 32 }, 1);
                EXPECT_FALSE(fileWasOpened());
            }
        }
    }
}

#define DRAWING                                                                                              \
    "<svg xmlns='http://www.w3.org/2000/svg' xmlns:l='http://www.w3.org/1999/xlink' width='64' height='32'>"
INSTANTIATE_TEST_SUITE_P(Drawings, ImageReachingOut,
    testing::Values(DRAWING "<image l:href='ADDRESS' width='64' height='32'/></svg>",
        "<s:svg xmlns:s='http://www.w3.org/2000/svg' xmlns:l='http://www.w3.org/1999/xlink' width='64' "
        "height='32'>"
        "<s:image l:href='ADDRESS' width='64' height='32'/></s:svg>",
        DRAWING "<use l:href='ADDRESS#a'/></svg>",
        "<?xml-stylesheet type=\"text/css\" href=\"ADDRESS\"?>" DRAWING
        "<rect width='64' height='32'/></svg>",
        DRAWING "<?xml-stylesheet type=\"text/css\" href=\"ADDRESS\"?><rect width='64' height='32'/></svg>",
        "<!DOCTYPE svg [<!ENTITY e SYSTEM 'ADDRESS'>]>" DRAWING "<text>&e;</text></svg>",
        "<!DOCTYPE svg SYSTEM 'ADDRESS'>" DRAWING "<rect width='64' height='32'/></svg>",
        DRAWING "<style type='text/css'>@import url(ADDRESS);</style><rect width='64' height='32'/></svg>",
        DRAWING "<style>rect { fill: url(ADDRESS) }</style><rect width='64' height='32'/></svg>",
        DRAWING "<rect width='64' height='32' fill='url(ADDRESS)'/></svg>",
        DRAWING
        "<font><font-face><font-face-src><font-face-uri l:href='ADDRESS'/></font-face-src></font-face>"
        "</font><text>x</text></svg>"));
#undef DRAWING

TEST_F(ImageReachingOut, TheWatchSeesAnOpenFile) {
    QFile file(file_);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_TRUE(fileWasOpened());
}

TEST_F(ImageTest, ADrawingThatRefersToAFifoHoldsNothingUp) {
    const auto fifo = bundle_.contents() + QStringLiteral("/fifo");
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    const auto bytes
        = "<?xml-stylesheet type=\"text/css\" href=\"" + fifo.toUtf8() + "\"?>" + drawing(fullGreen);
    if (const auto image = Image::withData(bytes))
        image->scaledToFit({ 64, 32 }, 1);
}

TEST_F(ImageTest, ADrawingIsUtf8) {
    for (const auto *encoding : { "UTF-7", "UTF-16", "UTF-32", "ISO-8859-1", "windows-1252", "x" })
        EXPECT_FALSE(Image::withData(
            "<?xml version='1.0' encoding='" + QByteArray(encoding) + "'?>" + drawing(fullGreen))
                         .has_value())
            << encoding;
    EXPECT_FALSE(Image::withData(drawing(fullGreen + "<text>\xe4</text>")).has_value());
}

// --- what would take long ------------------------------------------------------------------------

QByteArray number(int value) {
    return QByteArray::number(value);
}

QByteArray numbered(int count, const std::function<QByteArray(int)> &part) {
    QByteArray all;
    for (int index = 0; index < count; ++index)
        all += part(index);
    return all;
}

QByteArray points(int count) {
    return numbered(
        count, [](int index) { return number(index * 7919 % 64) + ',' + number(index % 32) + ' '; });
}

const QByteArray rect("<rect class='c1' width='9' height='9'/>");

QByteArray styled(const QByteArray &rules, const QByteArray &content) {
    return drawing("<style>" + rules + "</style>" + content);
}

QByteArray inside(int depth, const QByteArray &content) {
    return QByteArray("<g>").repeated(depth) + content + QByteArray("</g>").repeated(depth);
}

QByteArray stroked(int count) {
    return drawing("<polyline fill='none' stroke='red' stroke-width='9' stroke-linejoin='miter' points='"
        + points(count) + "'/>");
}

/// Letters as their outlines, each of twenty curves.
QByteArray wordMark(int curves) {
    const auto curve = [](int index) {
        const auto start = "ZM" + number(index % 60) + " 9";
        return (index % 20 == 0 ? start : QByteArray()) + "q.4 1.5 .8 " + number(index % 3 - 1);
    };
    return "<path d='M0 9" + numbered(curves, curve) + "Z'/>";
}

QByteArray letterOfFont(int index) {
    return "<text y='20' font-family='f" + number(index) + "'>x</text>";
}

QByteArray rules(int count) {
    return numbered(count, [](int index) { return ".c" + number(index) + "{fill:red}"; });
}

QByteArray attributes(int count) {
    return drawing("<rect" + numbered(count, [](int index) { return " a" + number(index) + "='1'"; })
        + " width='9' height='9'/>");
}

/// A picture whose scan, header and all, stands in it many times.
QByteArray jpegOfScans(int count) {
    const auto whole = bytesOf({ 2000, 1000 }, Qt::red, "JPEG");
    const auto scan = whole.indexOf("\xff\xda");
    return whole.left(scan) + whole.mid(scan, 14).repeated(count) + whole.mid(scan);
}

QByteArray progressiveJpeg() {
    QImage image(2000, 1000, QImage::Format_RGB32);
    image.fill(Qt::red);
    QBuffer buffer;
    QImageWriter writer(&buffer, "JPEG");
    writer.setProgressiveScanWrite(true);
    EXPECT_TRUE(writer.write(image));
    return buffer.data();
}

QByteArray pngOfTexts(int count) {
    const auto whole = bytesOf({ 64, 32 });
    const auto text = qCompress(QByteArray(7'000'000, 'x')).mid(4);
    QByteArray chunk = "zTXt" + ("Comment" + QByteArray("\0\0", 2)) + text;
    const auto length = qToBigEndian<quint32>(quint32(chunk.size() - 4));
    const auto end = qToBigEndian<quint32>(checksumOf(chunk));
    chunk = QByteArray(reinterpret_cast<const char *>(&length), 4) + chunk
        + QByteArray(reinterpret_cast<const char *>(&end), 4);
    constexpr qsizetype signatureAndHeader = 33;
    return whole.left(signatureAndHeader) + chunk.repeated(count) + whole.mid(signatureAndHeader);
}

struct BoundRow {
    const char *name;
    bool isShown;
    std::function<QByteArray()> bytes;
};

const std::vector<BoundRow> bounds {
    { "Rules", true, [] { return styled(rules(190), rect.repeated(900)); } },
    { "ManyRules", false, [] { return styled(rules(20'000), rect.repeated(20'000)); } },
    { "ManySelectors", false,
        [] { return styled(QByteArray(".a,").repeated(5000) + ".c1{fill:red}", rect.repeated(3000)); } },
    { "Descendants", true,
        [] {
            const auto each = [](int index) { return "g g g g g g .c" + number(index) + "{fill:red}"; };
            return styled(numbered(100, each), inside(50, rect.repeated(800)));
        } },
    { "OneLongSelector", true,
        [] {
            return styled(QByteArray("g ").repeated(8000) + "rect{fill:red}", inside(50, rect.repeated(800)));
        } },
    { "VeryLongSelector", false,
        [] { return styled(QByteArray("g ").repeated(80'000) + "rect{fill:red}", rect); } },
    { "Attributes", true, [] { return attributes(150); } },
    { "ManyAttributes", false, [] { return attributes(88'000); } },
    { "WordMark", true, [] { return drawing(wordMark(1900)); } },
    { "Points", true, [] { return stroked(1000); } },
    { "ManyPoints", false, [] { return stroked(100'000); } },
    { "Elements", true, [] { return drawing(rect.repeated(2900)); } },
    { "Depth", false, [] { return drawing(inside(100'000, rect)); } },
    { "Text", true,
        [] { return drawing("<text y='20'>" + QByteArray("\xc2\xa0").repeated(95) + "</text>"); } },
    { "Fonts", true, [] { return drawing(numbered(10, letterOfFont)); } },
    { "ManyFonts", false, [] { return drawing(numbered(2900, letterOfFont)); } },
    { "Description", true, [] { return drawing("<desc>" + QByteArray(4000, 'x') + "</desc>" + rect); } },
    { "MuchText", false,
        [] { return drawing("<text y='20'>" + QByteArray("\xc2\xa0x").repeated(50'000) + "</text>"); } },
    { "LargeDrawing", false, [] { return drawing("<!--" + QByteArray(600'000, 'x') + "-->" + rect); } },
    { "Scans", true, [] { return progressiveJpeg(); } },
    { "ManyScans", false, [] { return jpegOfScans(25'000); } },
    { "PackedTexts", true, [] { return pngOfTexts(800); } },
    { "LargePng", true,
        [] {
            return bytesOf({ 3000, 3000 });
        } },
};
using ImageBound = ImageTest;

TEST_F(ImageBound, IsShownOrRefusedAtOnce) {
    for (const auto &row : bounds) {
        SCOPED_TRACE(row.name);
        const auto bytes = row.bytes();
        const auto show = [&] {
            const auto image = Image::withData(bytes);
            EXPECT_EQ(image && !image->scaledToFit({ 412, 28 }, 2).isNull(), row.isShown);
        };
        EXPECT_LT(processorTimeOf(show), longestHold);
    }
}

TEST_F(ImageTest, ADrawingThatTakesLongIsGivenUp) {
    const auto slow = Image::withData(stroked(80'000));
    ASSERT_TRUE(slow.has_value());
    const auto isPlainOneDrawn = [] {
        const auto plain = Image::withData(drawing(rect));
        return plain && !plain->scaledToFit({ 412, 28 }, 2).isNull();
    };
    EXPECT_TRUE(isPlainOneDrawn());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(slow->scaledToFit({ 412, 28 }, 2).isNull());
    EXPECT_FALSE(isPlainOneDrawn()) << "one at a time";
    EXPECT_LT(std::chrono::steady_clock::now() - start, longestHold);
    EXPECT_TRUE(waitUntil(isPlainOneDrawn, std::chrono::minutes(1)));
}

TEST_F(ImageTest, ADrawingThatIsReadForLongIsNoImage) {
    const auto rule = [](int index) { return ".c" + number(index) + " g g g{fill:red}"; };
    const auto slow = styled(numbered(150, rule), inside(60, QByteArray("<g/>").repeated(6000)));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(Image::withData(slow).has_value());
    EXPECT_LT(std::chrono::steady_clock::now() - start, longestHold);
    EXPECT_TRUE(
        waitUntil([] { return Image::withData(drawing(rect)).has_value(); }, std::chrono::minutes(1)));
}

} // namespace
