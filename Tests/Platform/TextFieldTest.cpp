#include "Platform/Views/TextField.h"

#include "Platform/Views/Contrast.h"
#include "Tests/Fakes/Printing.h"
#include "Tests/Platform/DesktopTest.h"
#include "Tests/Platform/WaitUntil.h"

#include <QHelpEvent>
#include <QTextDocumentFragment>
#include <QToolTip>

#include <array>
#include <ctime>

namespace {

constexpr std::array styles { TextField::Style::Heading, TextField::Style::Body, TextField::Style::Caption,
    TextField::Style::Value, TextField::Style::Countdown };

class TextFieldTest : public DesktopTest {
protected:
    /// What the field looks like in that width, as high as it wants to be.
    static QImage drawn(TextField &field, int width) {
        field.resize(width, std::max(1, field.heightForWidth(width)));
        QImage image(field.size(), QImage::Format_RGB32);
        image.fill(Qt::white);
        field.render(&image, {}, {}, {});
        return image;
    }
    static QImage drawn(const QString &text, int width, int maximumLines = 0) {
        TextField field;
        field.setMaximumLines(maximumLines);
        field.setStringValue(text);
        return drawn(field, width);
    }
    static bool isBlank(const QImage &image) {
        QImage white(image.size(), image.format());
        white.fill(Qt::white);
        return image == white;
    }
    static double lineHeight() {
        TextField field;
        field.setStringValue(QStringLiteral("x"));
        return field.heightForWidth(1000);
    }
    static void hideToolTip() {
        QToolTip::hideText();
        EXPECT_TRUE(waitUntil([] { return QToolTip::text().isEmpty(); }));
    }
    static QString shownToolTip(TextField &field) {
        hideToolTip();
        QHelpEvent event(QEvent::ToolTip, QPoint(1, 1), QPoint(1, 1));
        QApplication::sendEvent(&field, &event);
        const auto tip = QToolTip::text();
        hideToolTip();
        // As the tool tip itself takes it.
        return Qt::mightBeRichText(tip) ? QTextDocumentFragment::fromHtml(tip).toPlainText() : tip;
    }

    const QString longText_ = QStringLiteral("Uploads to this application are not allowed. ").repeated(40);
};

TEST_F(TextFieldTest, KeepsItsTextAsItIs) {
    TextField field;
    EXPECT_EQ(field.stringValue(), "");
    for (const auto &text : { QStringLiteral("text"), QStringLiteral(" a\r\nb\t"), QStringLiteral("<b>x</b>"),
             QStringLiteral(u"\u202e日本\U0001f512"), QString() }) {
        field.setStringValue(text);
        EXPECT_EQ(field.stringValue(), text);
    }
}

class TextFieldMarkup : public TextFieldTest, public testing::WithParamInterface<const char *> { };

TEST_P(TextFieldMarkup, IsShownLiterally) {
    const auto text = QString::fromLatin1(GetParam());
    TextField field;
    field.setStringValue(text);
    EXPECT_EQ(field.stringValue(), text);
    EXPECT_FALSE(isBlank(drawn(field, 400)));
    // As wide as its characters are, those of the markup included.
    EXPECT_NEAR(field.sizeHint().width(), QFontMetricsF(field.font()).horizontalAdvance(text), 2);
    field.setAllowsExpansionToolTips(true);
    EXPECT_EQ(shownToolTip(field), text);
}

INSTANTIATE_TEST_SUITE_P(Texts, TextFieldMarkup,
    testing::Values("<b>bold</b>", "<h1>x</h1>", "<img src=\"file:///etc/passwd\">",
        "<a href=\"http://a\">x</a>", "&lt;b&gt;", "&amp;", "&File", "<qt>x</qt>", "<!-- c -->",
        "<table><tr><td>x</td></tr></table>", "**bold** _x_ [a](http://b)", "<script>x</script>", "a<br>b",
        "%1 %s %n"));

TEST_F(TextFieldTest, AnEmptyTextHasNoHeight) {
    TextField field;
    EXPECT_EQ(field.heightForWidth(100), 0);
    EXPECT_EQ(field.measuredHeight(100), 0);
    EXPECT_EQ(field.minimumSizeHint().height(), 0);
    field.setMaximumLines(2);
    EXPECT_EQ(field.heightForWidth(100), 0);
    EXPECT_EQ(field.measuredHeight(100), 0);
}

TEST_F(TextFieldTest, LinesHaveTheHeightOfTheirStyle) {
    const std::array heights { 24, 20, 19, 19, 17 };
    for (std::size_t index = 0; index < styles.size(); ++index) {
        TextField field;
        field.setTextStyle(styles[index]);
        field.setStringValue(QStringLiteral("one"));
        EXPECT_NEAR(field.heightForWidth(400), heights[index], 3) << index;
        EXPECT_GE(field.heightForWidth(400), heights[index]) << index;
        field.setStringValue(QStringLiteral("one\ntwo\nthree"));
        EXPECT_NEAR(field.heightForWidth(400), 3 * heights[index], 9) << index;
    }
}

TEST_F(TextFieldTest, EveryStyleIsReadableOnWhite) {
    for (const auto style : styles) {
        TextField field;
        field.setTextStyle(style);
        EXPECT_EQ(field.textStyle(), style);
        EXPECT_GE(Contrast::ratio(field.textColor(), Qt::white), Contrast::readable);
    }
}

TEST_F(TextFieldTest, EveryKindOfLineBreakBreaksTheLine) {
    const auto height = lineHeight();
    for (const auto &separator : { QStringLiteral("\n"), QStringLiteral("\r\n"), QStringLiteral("\r"),
             QString(QChar(QChar::ParagraphSeparator)), QString(QChar(QChar::LineSeparator)) }) {
        for (const int limit : { 0, 5 }) {
            TextField field;
            field.setMaximumLines(limit);
            field.setStringValue(QStringLiteral("one") + separator + QStringLiteral("two"));
            EXPECT_EQ(field.heightForWidth(400), 2 * height) << int(separator[0].unicode()) << ' ' << limit;
            EXPECT_EQ(field.measuredHeight(400), 2 * height) << int(separator[0].unicode()) << ' ' << limit;
        }
    }
}

TEST_F(TextFieldTest, TextThatDoesNotFitGoesOnInTheNextLine) {
    TextField field;
    field.setStringValue(longText_);
    EXPECT_GT(field.heightForWidth(200), field.heightForWidth(400));
    EXPECT_GT(field.heightForWidth(400), 10 * lineHeight());
    EXPECT_EQ(field.measuredHeight(400), field.heightForWidth(400));
}

TEST_F(TextFieldTest, ALongWordIsBroken) {
    TextField field;
    field.setStringValue(QString(300, u'W'));
    EXPECT_GT(field.heightForWidth(200), 5 * lineHeight());
    const auto image = drawn(field, 200);
    // Something is drawn in every line, and each line has the field's width.
    for (int line = 0; line < field.heightForWidth(200) / lineHeight(); ++line)
        EXPECT_FALSE(isBlank(
            image.copy(0, static_cast<int>(line * lineHeight()), 200, static_cast<int>(lineHeight()))));
}

TEST_F(TextFieldTest, ALimitOfLinesLimitsTheHeightAndNotTheMeasure) {
    TextField field;
    field.setStringValue(longText_);
    const auto whole = field.measuredHeight(400);
    EXPECT_GT(whole, 2 * lineHeight());
    field.setMaximumLines(2);
    EXPECT_EQ(field.maximumLines(), 2);
    EXPECT_EQ(field.heightForWidth(400), 2 * lineHeight());
    EXPECT_EQ(field.measuredHeight(400), whole);
    EXPECT_EQ(field.stringValue(), longText_);
}

TEST_F(TextFieldTest, ATextWithinTheLimitIsShownWhole) {
    for (const auto &text : { QStringLiteral("short"), QStringLiteral("one\ntwo") })
        EXPECT_EQ(drawn(text, 400, 2), drawn(text, 400)) << text.toStdString();
}

TEST_F(TextFieldTest, ATextPastTheLimitEndsInAnEllipsis) {
    const auto cut = drawn(longText_, 200, 1);
    const auto endsInEllipsis
        = [&](qsizetype length) { return cut == drawn(longText_.left(length) + QChar(u'\u2026'), 200, 1); };
    qsizetype length = 0;
    while (length < 80 && !endsInEllipsis(length))
        ++length;
    EXPECT_GT(length, 10) << "much of the text is shown";
    EXPECT_LT(length, 80) << "some beginning of the text with an ellipsis looks like it";
}

TEST_F(TextFieldTest, AParagraphLeftOutGivesAnEllipsisToo) {
    EXPECT_EQ(drawn(QStringLiteral("one\ntwo"), 200, 1), drawn(QStringLiteral(u"one\u2026"), 200));
    EXPECT_EQ(
        drawn(QStringLiteral("one\ntwo\nthree"), 200, 2), drawn(QStringLiteral(u"one\ntwo\u2026"), 200));
    EXPECT_EQ(drawn(QStringLiteral("one\n\nthree"), 200, 2), drawn(QStringLiteral(u"one\n\u2026"), 200));
}

TEST_F(TextFieldTest, FiftyThousandCharactersAreLaidOutAndDrawnInLittleTime) {
    const auto words = QStringLiteral("word ").repeated(10'000);
    const QString word(50'000, u'x');
    const auto paragraphs = QStringLiteral("x\n").repeated(25'000);
    for (const auto &text : { words, word, paragraphs }) {
        const auto start = std::clock();
        TextField field;
        field.setStringValue(text);
        EXPECT_EQ(field.stringValue().size(), 50'000);
        EXPECT_GT(field.heightForWidth(412), 100 * lineHeight());
        EXPECT_EQ(field.measuredHeight(412), field.heightForWidth(412));
        field.setMaximumLines(2);
        EXPECT_FALSE(isBlank(drawn(field, 412)));
        EXPECT_LT(static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC, 10.0);
    }
}

TEST_F(TextFieldTest, AMillionCharactersAreHarmless) {
    TextField field;
    field.setStringValue(QString(1'000'000, u'x'));
    EXPECT_EQ(field.stringValue().size(), 1'000'000);
    EXPECT_GT(field.heightForWidth(412), 1000);
    field.setAllowsExpansionToolTips(true);
    EXPECT_FALSE(shownToolTip(field).isEmpty());
}

TEST_F(TextFieldTest, OddTextsAreHarmless) {
    for (const auto &text : { QString(QChar(u'\0')), QString(QChar(u'\xd800')),
             QStringLiteral(u"\u202e\u2066\u200f"), QString(1000, QChar(0x0301)),
             QString(1000, QChar(0x202b)), QString(1000, u'\n'), QString(1000, u'\t') }) {
        TextField field;
        field.setStringValue(text);
        EXPECT_GE(field.heightForWidth(200), 0);
        drawn(field, 200);
        drawn(text, 1, 1);
    }
}

TEST_F(TextFieldTest, TheToolTipIsShownOnlyWhenItIsAllowed) {
    TextField field;
    field.setStringValue(QStringLiteral("text"));
    EXPECT_FALSE(field.allowsExpansionToolTips());
    EXPECT_EQ(shownToolTip(field), "");
    field.setAllowsExpansionToolTips(true);
    EXPECT_EQ(shownToolTip(field), "text");
    field.setAllowsExpansionToolTips(false);
    EXPECT_EQ(shownToolTip(field), "");
}

TEST_F(TextFieldTest, TheToolTipHoldsTheWholeText) {
    TextField field;
    field.setMaximumLines(1);
    field.setStringValue(longText_);
    field.setAllowsExpansionToolTips(true);
    EXPECT_EQ(shownToolTip(field).simplified(), longText_.simplified());
}

TEST_F(TextFieldTest, ARightToLeftParagraphRunsFromTheRight) {
    TextField field;
    field.setLayoutDirection(Qt::RightToLeft);
    field.setStringValue(QStringLiteral(u"שלום"));
    const auto image = drawn(field, 400);
    EXPECT_TRUE(isBlank(image.copy(0, 0, 200, image.height())));
    EXPECT_FALSE(isBlank(image.copy(200, 0, 200, image.height())));
    field.setLayoutDirection(Qt::LeftToRight);
    const auto mirrored = drawn(field, 400);
    EXPECT_FALSE(isBlank(mirrored.copy(0, 0, 200, image.height())));
    EXPECT_TRUE(isBlank(mirrored.copy(200, 0, 200, image.height())));
}

} // namespace
