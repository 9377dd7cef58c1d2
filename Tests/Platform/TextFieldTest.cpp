#include "Platform/Views/TextField.h"

#include "Platform/Views/Contrast.h"
#include "Platform/Views/TextScale.h"
#include "Tests/Fakes/Printing.h"
#include "Tests/Platform/DesktopTest.h"
#include "Tests/Platform/WaitUntil.h"
#include "Tests/ProcessorTime.h"

#include <QClipboard>
#include <QHelpEvent>
#include <QTextDocumentFragment>
#include <QToolTip>

#include <array>
#include <cmath>

namespace {

constexpr std::array styles { TextField::Style::Heading, TextField::Style::Body, TextField::Style::Caption,
    TextField::Style::Value, TextField::Style::Countdown };

class TextFieldTest : public DesktopTest {
protected:
    using Style = TextField::Style;

    /// What the field looks like in that width, as high as it wants to be.
    static QImage drawn(TextField &field, int width) {
        field.resize(width, std::max(1, field.heightForWidth(width)));
        QImage image(field.size(), QImage::Format_RGB32);
        image.fill(Qt::white);
        field.render(&image, {}, {}, {});
        return image;
    }
    static QImage drawn(const QString &text, int width, Style style = Style::Body) {
        TextField field;
        field.setTextStyle(style);
        field.setStringValue(text);
        return drawn(field, width);
    }
    static bool isBlank(const QImage &image) {
        QImage white(image.size(), image.format());
        white.fill(Qt::white);
        return image == white;
    }
    static double lineHeight(Style style = Style::Body) {
        TextField field;
        field.setTextStyle(style);
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

using TextFieldMarkup = TextFieldTest;

TEST_F(TextFieldMarkup, IsShownLiterally) {
    for (const char *markup :
        { "<b>bold</b>", "<img src=\"file:///etc/passwd\">", "<a href=\"http://a\">x</a>", "&lt;b&gt;",
            "&File", "<qt>x</qt>", "**bold** _x_ [a](http://b)", "a<br>b", "%1 %s %n" }) {
        SCOPED_TRACE(markup);
        const auto text = QString::fromLatin1(markup);
        TextField field;
        field.setStringValue(text);
        EXPECT_EQ(field.stringValue(), text);
        EXPECT_FALSE(isBlank(drawn(field, 400)));
        // As wide as its characters are, those of the markup included.
        const int wide = static_cast<int>(QFontMetricsF(field.font()).horizontalAdvance(text)) + 1;
        EXPECT_EQ(field.heightForWidth(wide), lineHeight());
        EXPECT_GT(field.heightForWidth(wide - 2), lineHeight());
        field.setAllowsExpansionToolTips(true);
        EXPECT_EQ(shownToolTip(field), text);
    }
}

TEST_F(TextFieldTest, AnEmptyTextHasNoHeight) {
    TextField field;
    EXPECT_EQ(field.heightForWidth(100), 0);
    EXPECT_EQ(field.measuredHeight(100), 0);
    EXPECT_EQ(field.minimumSizeHint().height(), 0);
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
    for (const auto &separator : { QStringLiteral("\n"), QStringLiteral("\r\n"), QStringLiteral("\r"),
             QString(QChar(QChar::ParagraphSeparator)), QString(QChar(QChar::LineSeparator)) }) {
        for (const auto style : { Style::Body, Style::Value }) {
            TextField field;
            field.setTextStyle(style);
            field.setStringValue(QStringLiteral("one") + separator + QStringLiteral("two"));
            EXPECT_EQ(field.heightForWidth(400), 2 * lineHeight(style)) << int(separator[0].unicode());
            EXPECT_EQ(field.measuredHeight(400), 2 * lineHeight(style)) << int(separator[0].unicode());
        }
    }
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

TEST_F(TextFieldTest, AValueHasTwoLinesAndIsMeasuredAsMore) {
    TextField field;
    field.setTextStyle(Style::Value);
    field.setStringValue(longText_);
    EXPECT_EQ(field.heightForWidth(400), 2 * lineHeight(Style::Value));
    EXPECT_GT(field.measuredHeight(400), 2 * lineHeight(Style::Value));
    EXPECT_EQ(field.heightForWidth(400), 2 * lineHeight(Style::Value));
    EXPECT_EQ(field.stringValue(), longText_);
}

TEST_F(TextFieldTest, AValueThatJustFitsIsMeasuredAsHighAsItIs) {
    TextField field;
    field.setTextStyle(Style::Value);
    field.setStringValue(QStringLiteral("just fits into one line"));
    const int wide
        = static_cast<int>(std::ceil(QFontMetricsF(field.font()).horizontalAdvance(field.stringValue())));
    EXPECT_EQ(field.measuredHeight(wide), lineHeight(Style::Value));
    EXPECT_EQ(field.measuredHeight(wide - 4), 2 * lineHeight(Style::Value));
}

TEST_F(TextFieldTest, ATextPastTheLimitEndsInAnEllipsis) {
    for (const auto &text : { longText_, QString(300, u'x') }) {
        const auto cut = drawn(text, 200, Style::Value);
        const auto endsInEllipsis = [&](qsizetype length) {
            return cut == drawn(text.left(length) + QChar(u'\u2026'), 200, Style::Value);
        };
        qsizetype length = 0;
        while (length < 120 && !endsInEllipsis(length))
            ++length;
        EXPECT_GT(length, 20) << "much of the text is shown";
        EXPECT_LT(length, 120) << "some beginning of the text with an ellipsis looks like it";
    }
}

TEST_F(TextFieldTest, AnAddressPastTheLimitIsCutInItsMiddle) {
    const auto address = [](const QString &middle) {
        return QStringLiteral("https://one.example/") + middle.repeated(60) + QStringLiteral("/end.html");
    };
    const auto shown = [](const QString &text) {
        TextField field;
        field.setTextStyle(Style::Value);
        field.setCutInMiddle(true);
        field.setStringValue(text);
        return drawn(field, 200);
    };
    const auto one = shown(address(QStringLiteral("a")));
    EXPECT_EQ(one.height(), 2 * lineHeight(Style::Value));
    auto other = address(QStringLiteral("a"));
    EXPECT_EQ(one, shown(other.replace(50, 1, QStringLiteral("b")))) << "the middle is not seen";
    EXPECT_NE(one, shown(other.replace(other.size() - 1, 1, QStringLiteral("k")))) << "the end is";
    EXPECT_NE(one, shown(other.replace(0, 1, QStringLiteral("k")))) << "and so is the beginning";
    EXPECT_EQ(shown(QStringLiteral("https://short.example/")).height(), lineHeight(Style::Value));
}

TEST_F(TextFieldTest, AParagraphLeftOutGivesAnEllipsisToo) {
    EXPECT_EQ(drawn(QStringLiteral("one\ntwo\nthree"), 200, Style::Value),
        drawn(QStringLiteral(u"one\ntwo\u2026"), 200, Style::Value));
}

TEST_F(TextFieldTest, TheLinesOfAHeadingAreBalanced) {
    TextField field;
    field.setTextStyle(Style::Heading);
    field.setStringValue(QStringLiteral("Upload blocked by the Cloud Access Policy of all"));
    const int wide = static_cast<int>(
        QFontMetricsF(field.font())
            .horizontalAdvance(QStringLiteral("Upload blocked by the Cloud Access Policy of"))
        + 4);
    const auto image = drawn(field, wide);
    ASSERT_EQ(image.height(), 2 * lineHeight(Style::Heading));
    const int line = image.height() / 2;
    EXPECT_TRUE(isBlank(image.copy(wide * 3 / 4, 0, wide / 4, line))) << "the first line is shorter";
    EXPECT_FALSE(isBlank(image.copy(wide / 3, line, wide / 3, line))) << "for the second one";
}

TEST_F(TextFieldTest, ABodyDoesNotEndInOneShortWord) {
    TextField field;
    field.setStringValue(QStringLiteral("The file was not sent to the other storage of it"));
    const int wide = static_cast<int>(
        QFontMetricsF(field.font())
            .horizontalAdvance(QStringLiteral("The file was not sent to the other storage of"))
        + 2);
    const auto image = drawn(field, wide);
    ASSERT_EQ(image.height(), 2 * lineHeight());
    const int line = image.height() / 2;
    EXPECT_FALSE(isBlank(image.copy(wide / 8, line, wide / 4, line)));
}

TEST_F(TextFieldTest, TextUpToElevenPointsIsOrdinary) {
    const auto before = QApplication::font();
    for (const auto &[points, scale] : std::vector<std::pair<double, double>> {
             { 6, 1 }, { 10, 1 }, { 11, 1 }, { 12, 1.2 }, { 14, 1.4 }, { 25, 2.5 }, { 60, 2.5 } }) {
        auto font = before;
        font.setPointSizeF(points);
        QApplication::setFont(font);
        EXPECT_NEAR(textScale(), scale, 1e-6) << points;
    }
    QApplication::setFont(before);
}

// --- what a message may bring --------------------------------------------------------------------

QString repeated(char32_t letter, int count) {
    return QString::fromUcs4(&letter, 1).repeated(count);
}

QString lettersOfEveryPlane() {
    QString text;
    for (char32_t letter = 0x100; text.size() < 100'000; letter += 7) {
        if (letter > 0x10ffff)
            letter = 0x101;
        if (letter < 0xd800 || letter > 0xdfff)
            text += QString::fromUcs4(&letter, 1);
    }
    return text;
}

using TextThatTakesTime = TextFieldTest;

TEST_F(TextThatTakesTime, IsShownAtOnceAndNotLost) {
    const std::pair<const char *, QString> rows[] {
        { "Words", QStringLiteral("word ").repeated(20'000) },
        { "OneWord", QString(1'000'000, u'x') },
        { "Paragraphs", QStringLiteral("x\n").repeated(50'000) },
        { "NoBreakSpaces", QString(100'000, QChar(0xa0)) },
        { "FigureSpaces", QString(100'000, QChar(0x2007)) },
        { "NarrowNoBreakSpaces", QString(100'000, QChar(0x202f)) },
        { "Flags", repeated(0x1f1e9, 50'000) },
        { "SkinTones", repeated(0x1f3fd, 50'000) },
        { "ToneLetters", repeated(0x2e5, 50'000) },
        { "Accents", QString(100'000, QChar(0x301)) },
        { "Joiners", repeated(0x200d, 100'000) },
        { "Embeddings", repeated(0x202b, 100'000) },
        { "EveryPlane", lettersOfEveryPlane() },
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.first);
        for (const auto style : styles) {
            const auto show = [style, &text = row.second] {
                TextField field;
                field.setTextStyle(style);
                field.setStringValue(text);
                EXPECT_TRUE(field.stringValue() == text);
                EXPECT_GT(field.measuredHeight(356), 0);
                drawn(field, 356);
                field.expansionToolTip();
            };
            EXPECT_LT(processorTimeOf(show), longestHold);
        }
    }
}

// Adlam, Ahom, Bhaiksuki and so on: four others in each field.
TEST_F(TextFieldTest, ANoticeWithRareScriptsInEveryFieldIsShownAtOnce) {
    constexpr std::array<char32_t, 40> rare { 0x1e900, 0x11700, 0x11c00, 0x11005, 0x11103, 0x10530, 0x102a0,
        0x11803, 0x10c80, 0x11305, 0x10840, 0x10b60, 0x11205, 0x112b0, 0x10a00, 0x11183, 0x11150, 0x10620,
        0x11d10, 0x11d70, 0x1e803, 0x16e40, 0x11600, 0x16a40, 0x10880, 0x11400, 0x1e100, 0x10350, 0x10d00,
        0x10860, 0x16b00, 0x11ac0, 0x10b80, 0x11580, 0x10f30, 0x10f00, 0x11680, 0x16ac0, 0x1e2c0, 0x11a00 };
    QWidget notice;
    const auto show = [&] {
        std::vector<TextField *> fields;
        for (std::size_t index = 0; index < rare.size() / 4; ++index) {
            auto *field = fields.emplace_back(new TextField(&notice));
            field->setTextStyle(styles[index % styles.size()]);
            field->setStringValue(QString::fromUcs4(&rare[4 * index], 4));
        }
        for (auto *field : fields)
            drawn(*field, 356);
    };
    EXPECT_LT(processorTimeOf(show), longestHold);
}

TEST_F(TextFieldTest, AVeryLongTextIsCutBetweenLettersAndSaysSo) {
    TextField field;
    field.setStringValue(QString(100'000, u'x'));
    const auto height = field.heightForWidth(356);
    EXPECT_GT(height, 50 * lineHeight());
    EXPECT_LT(height, 200 * lineHeight());
    EXPECT_GT(field.measuredHeight(356), height) << "there is more than is shown";
    // A pair of code units is one letter wherever it is cut.
    const auto rocket = QString::fromUcs4(U"\U0001f680", 1);
    EXPECT_EQ(drawn(rocket.repeated(9000), 356), drawn(rocket.repeated(8000), 356));
    EXPECT_EQ(drawn(QStringLiteral("x") + rocket.repeated(9000), 356).height(),
        drawn(rocket.repeated(9000), 356).height());
}

// --- selecting and copying -----------------------------------------------------------------------

class TextSelection : public TextFieldTest {
protected:
    static void press(TextField &field, QKeySequence::StandardKey key) {
        const auto combination = QKeySequence(key)[0];
        QKeyEvent event(QEvent::KeyPress, combination.key(), combination.keyboardModifiers());
        QApplication::sendEvent(&field, &event);
    }
    static void mouse(TextField &field, QEvent::Type type, const QPointF &at) {
        QMouseEvent event(type, at, field.mapToGlobal(at), Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(&field, &event);
    }
    static void show(TextField &field, const QString &text, int width = 356) {
        field.setStringValue(text);
        drawn(field, width);
    }
};

TEST_F(TextSelection, TheKeyboardSelectsAndCopies) {
    TextField field;
    show(field, QStringLiteral("one two three"));
    EXPECT_EQ(field.focusPolicy(), Qt::StrongFocus);
    EXPECT_EQ(field.selectedText(), "");
    press(field, QKeySequence::SelectAll);
    EXPECT_EQ(field.selectedText(), "one two three");
    press(field, QKeySequence::SelectPreviousChar);
    EXPECT_EQ(field.selectedText(), "one two thre");
    press(field, QKeySequence::SelectPreviousWord);
    EXPECT_EQ(field.selectedText(), "one two ");
    press(field, QKeySequence::SelectNextChar);
    EXPECT_EQ(field.selectedText(), "one two t");
    press(field, QKeySequence::SelectNextWord);
    press(field, QKeySequence::Copy);
    EXPECT_EQ(QGuiApplication::clipboard()->text(), "one two three");
}

TEST_F(TextSelection, TheMouseSelects) {
    TextField field;
    show(field, QStringLiteral("one two\nthree"));
    mouse(field, QEvent::MouseButtonPress, { 0, 5 });
    mouse(field, QEvent::MouseMove, { 300, lineHeight() + 5 });
    EXPECT_EQ(field.selectedText(), "one two\nthree");
    const auto plain = drawn(QStringLiteral("one two\nthree"), 356);
    EXPECT_NE(drawn(field, 356), plain) << "a selection is seen";
    mouse(field, QEvent::MouseButtonPress, { 2, lineHeight() + 5 });
    EXPECT_EQ(field.selectedText(), "");
    mouse(field, QEvent::MouseButtonDblClick, { 2, 5 });
    EXPECT_EQ(field.selectedText().trimmed(), "one");
    field.setStringValue(QStringLiteral("other"));
    EXPECT_EQ(field.selectedText(), "");
}

TEST_F(TextSelection, ATextThatIsCutIsCopiedWhole) {
    TextField field;
    field.setTextStyle(Style::Value);
    show(field, longText_, 200);
    mouse(field, QEvent::MouseButtonPress, { 0, 5 });
    mouse(field, QEvent::MouseMove, { 60, 5 });
    EXPECT_EQ(field.selectedText(), longText_);
}

TEST_F(TextSelection, ATextOfTooManyLettersIsCopiedWholeWhateverItsLines) {
    TextField field;
    const auto text = QStringLiteral("a word\n").repeated(430);
    show(field, text);
    press(field, QKeySequence::SelectAll);
    EXPECT_EQ(field.selectedText(), text);
}

TEST_F(TextSelection, ReachingAFieldByTabSelectsIt) {
    TextField field;
    show(field, QStringLiteral("text"));
    QFocusEvent in(QEvent::FocusIn, Qt::TabFocusReason);
    QApplication::sendEvent(&field, &in);
    EXPECT_EQ(field.selectedText(), "text");
    QFocusEvent out(QEvent::FocusOut, Qt::TabFocusReason);
    QApplication::sendEvent(&field, &out);
    EXPECT_EQ(field.selectedText(), "");
}

TEST_F(TextSelection, CaptionsAndCountdownsAreNotSelected) {
    for (const auto style : { Style::Caption, Style::Countdown }) {
        TextField field;
        field.setTextStyle(style);
        show(field, QStringLiteral("text"));
        EXPECT_EQ(field.focusPolicy(), Qt::NoFocus);
        mouse(field, QEvent::MouseButtonDblClick, { 2, 5 });
        EXPECT_EQ(field.selectedText(), "");
    }
}

TEST_F(TextFieldTest, ALetterThatTheToolkitDoesNotKnowCutsNothing) {
    TextField field;
    field.setTextStyle(Style::Value);
    field.setStringValue(QStringLiteral("a ") + QString::fromUcs4(U"\U0003fffd", 1));
    EXPECT_EQ(field.measuredHeight(356), field.heightForWidth(356));
}

TEST_F(TextFieldTest, OddTextsAreHarmless) {
    for (const auto &text : { QString(QChar(u'\0')), QString(QChar(u'\xd800')),
             QStringLiteral(u"\u202e\u2066\u200f"), QString(1000, QChar(0x0301)),
             QString(1000, QChar(0x202b)), QString(1000, u'\n'), QString(1000, u'\t') }) {
        for (const int width : { 1, 200 }) {
            drawn(text, width);
            drawn(text, width, Style::Value);
        }
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

} // namespace
