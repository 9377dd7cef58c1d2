#include "Platform/Image.h"

#include "Platform/Views/ImageView.h"
#include "Tests/Platform/DesktopTest.h"
#include "Tests/Platform/PrintQt.h"
#include "Tests/Platform/RawBundle.h"

#include <QBuffer>
#include <QImage>
#include <QtEndian>

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

class ImageFormat : public ImageTest, public testing::WithParamInterface<const char *> { };

TEST_P(ImageFormat, IsDecoded) {
    const auto image = Image::withData(bytesOf({ 40, 20 }, Qt::blue, GetParam()));
    ASSERT_TRUE(image.has_value());
    EXPECT_EQ(image->size(), QSize(40, 20));
    const auto color = centre(image->scaledToFit({ 40, 20 }, 1));
    EXPECT_GT(color.blue(), 240);
    EXPECT_LT(color.red(), 15);
}

INSTANTIATE_TEST_SUITE_P(Bytes, ImageFormat, testing::Values("PNG", "JPEG", "BMP", "ICO"),
    [](const auto &format) { return format.param; });

TEST_F(ImageTest, AGifIsDecoded) {
    const QByteArray gif("GIF89a\2\0\1\0\x80\0\0\xff\0\0\0\0\xff\x2c\0\0\0\0\2\0\1\0\0\2\2\4\n\0\x3b", 36);
    const auto image = Image::withData(gif);
    ASSERT_TRUE(image.has_value());
    EXPECT_EQ(image->size(), QSize(2, 1));
    EXPECT_FALSE(image->scaledToFit({ 20, 10 }, 1).isNull());
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
}

TEST_F(ImageTest, ADrawingAloneIsAnImage) {
    add("logo.svg", drawing(fullGreen));
    EXPECT_EQ(named().value_or(Image()).size(), QSize(64, 32));
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

void PrintTo(const FitRow &row, std::ostream *stream) {
    *stream << row.name;
}

class ImageFit : public ImageTest, public testing::WithParamInterface<FitRow> { };

TEST_P(ImageFit, KeepsTheProportionsWithinTheBox) {
    const auto &row = GetParam();
    const auto image = Image::withData(bytesOf(row.picture));
    ASSERT_TRUE(image.has_value());
    const auto drawn = image->scaledToFit(row.box, row.scale);
    EXPECT_EQ(drawn.size(), row.drawn);
    EXPECT_EQ(drawn.devicePixelRatio(), row.scale);
}

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
INSTANTIATE_TEST_SUITE_P(
    Pictures, ImageFit, testing::ValuesIn(fits), [](const auto &row) { return row.param.name; });

/// A PNG whose header claims that size.
QByteArray claiming(quint32 width, quint32 height) {
    auto png = bytesOf({ 1, 1 });
    const auto put = [&png](qsizetype position, quint32 value) {
        value = qToBigEndian(value);
        png.replace(position, 4, QByteArray(reinterpret_cast<const char *>(&value), 4));
    };
    put(16, width);
    put(20, height);
    quint32 checksum = 0xffffffff;
    for (qsizetype index = 12; index < 29; ++index) {
        checksum ^= static_cast<unsigned char>(png[index]);
        for (int bit = 0; bit < 8; ++bit)
            checksum = checksum & 1 ? checksum >> 1 ^ 0xedb88320 : checksum >> 1;
    }
    put(29, ~checksum);
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

class NoImage : public ImageTest, public testing::WithParamInterface<QByteArray> { };

TEST_P(NoImage, IsNone) {
    EXPECT_FALSE(Image::withData(GetParam()).has_value());
}

INSTANTIATE_TEST_SUITE_P(Bytes, NoImage,
    testing::Values(QByteArray(), QByteArray("\0", 1), QByteArray("no image"), QByteArray(100'000, 'x'),
        QByteArray("\x89PNG\r\n\x1a\n"), QByteArray("\xff\xd8\xff"), QByteArray("GIF89a"), QByteArray("BM"),
        QByteArray("\0\0\1\0", 4), QByteArray("<svg"), QByteArray("<svg>"), QByteArray("<svg/>"),
        QByteArray("<html><body/></html>"), QByteArray("<?xml version='1.0'?><a/>"),
        QByteArray("/* XPM */ static char *x[] = { \"1 1 1 1\", \"a c red\", \"a\" };"),
        QByteArray("P1 1 1 1"), QByteArray("%PDF-1.4"), QByteArray("\x1f\x8b\x08\0\0\0\0\0", 8)));

TEST_F(ImageTest, APictureCutAnywhereIsHarmless) {
    for (const char *format : { "PNG", "JPEG", "BMP", "ICO" }) {
        const auto whole = bytesOf({ 30, 20 }, Qt::red, format);
        for (qsizetype length = 0; length < whole.size(); length += 3) {
            if (const auto image = Image::withData(whole.left(length)))
                image->scaledToFit({ 200, 32 }, 1);
        }
    }
    for (const char *format : { "PNG", "JPEG", "ICO" }) { // what a BMP has of its lines is shown
        const auto whole = bytesOf({ 300, 200 }, Qt::red, format);
        EXPECT_FALSE(Image::withData(whole.left(60)).has_value()) << format << ": a header and no picture";
    }
}

TEST_F(ImageTest, ADrawingInsideItselfManyTimesIsRefusedOrHarmless) {
    constexpr int levels = 100'000;
    const auto nested
        = drawing(QByteArray("<g>").repeated(levels) + fullGreen + QByteArray("</g>").repeated(levels));
    if (const auto image = Image::withData(nested))
        image->scaledToFit({ 64, 32 }, 1);
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

TEST_P(ImageReachingOut, ReadsNoFile) {
    for (const auto &address : { file_, QStringLiteral("file://") + file_ }) {
        SCOPED_TRACE(address.toStdString());
        const auto bytes = QByteArray(GetParam()).replace("ADDRESS", address.toUtf8());
        if (const auto image = Image::withData(bytes))
            image->scaledToFit({ 64, 32 }, 1);
        EXPECT_FALSE(fileWasOpened());
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

TEST_F(ImageTest, ADrawingThatUsesItselfTimesAndTimesAgainIsRefused) {
    for (const QByteArray prefix : { "", "s:" }) {
        QByteArray content
            = "<" + prefix + "g id='a0'>" + "<" + prefix + "rect width='1' height='1'/></" + prefix + "g>";
        for (int level = 1; level < 12; ++level) {
            content += "<" + prefix + "g id='a" + QByteArray::number(level) + "'>"
                + ("<" + prefix + "use xlink:href='#a" + QByteArray::number(level - 1) + "'/>").repeated(10)
                + "</" + prefix + "g>";
        }
        const auto bytes = "<" + prefix
            + "svg xmlns='http://www.w3.org/2000/svg' xmlns:s='http://www.w3.org/2000/svg' "
              "xmlns:xlink='http://www.w3.org/1999/xlink' width='64' height='32'>"
            + content + "</" + prefix + "svg>";
        EXPECT_FALSE(Image::withData(bytes).has_value());
    }
}

TEST_F(ImageTest, ADrawingInAnEncodingThatHidesItsTagsIsRefused) {
    const auto hidden = "<?xml version='1.0' encoding='UTF-7'?>" + drawing("+ADw-image xlink:href='x'/+AD4-");
    EXPECT_FALSE(Image::withData(hidden).has_value());
    for (const auto *encoding : { "UTF-8", "utf-8", "ISO-8859-1", "US-ASCII" }) {
        EXPECT_TRUE(Image::withData(
            "<?xml version='1.0' encoding='" + QByteArray(encoding) + "'?>" + drawing(fullGreen))
                        .has_value())
            << encoding;
    }
}

class ImageViewTest : public ImageTest { };

TEST_F(ImageViewTest, ShowsItsImageAtTheLeadingEdge) {
    ImageView view;
    view.resize(200, 32);
    view.setImage(Image::withData(bytesOf({ 32, 32 })));
    const auto paints = [&view](int x) {
        QImage shown(view.size(), QImage::Format_RGB32);
        shown.fill(Qt::white);
        view.render(&shown, {}, {}, {});
        return shown.pixelColor(x, 16) == QColor(Qt::red);
    };
    EXPECT_TRUE(paints(5));
    EXPECT_FALSE(paints(195));
    view.setLayoutDirection(Qt::RightToLeft);
    EXPECT_FALSE(paints(5));
    EXPECT_TRUE(paints(195));
    view.setImage(std::nullopt);
    EXPECT_FALSE(paints(5));
    EXPECT_FALSE(paints(195));
}

} // namespace
