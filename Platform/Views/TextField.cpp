#include "Platform/Views/TextField.h"

#include "Platform/Views/NoticeStyle.h"
#include "Platform/Views/TextScale.h"

#include <QAccessible>
#include <QApplication>
#include <QClipboard>
#include <QHelpEvent>
#include <QPainter>
#include <QTextBoundaryFinder>
#include <QToolTip>

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>
#include <utility>

namespace {

/// Sizes in pixels at scale 1 on a desktop with ordinary text; they grow with the desktop's text size.
struct Look {
    double size = 0;
    double lineHeight = 0;
    QFont::Weight weight = QFont::Normal;
    QColor color;
    int maxLines = 0;
    qsizetype maxLetters = 0;
};

constexpr int unlimited = std::numeric_limits<int>::max() - 1;
constexpr int maxLettersALine = 150;

// Nobody reads more than this of a notice, and shaping takes the square of some texts.
constexpr qsizetype maxLetters = 3000;
constexpr qsizetype maxHeadingLetters = 600;

Look lookOf(TextField::Style style) {
    switch (style) {
    case TextField::Style::Heading:
        return { 17, 24, QFont::DemiBold, QColor(30, 34, 52), unlimited, maxHeadingLetters };
    case TextField::Style::Body:
        return { 13.5, 20, QFont::Normal, QColor(58, 64, 86), unlimited, maxLetters };
    case TextField::Style::Caption:
        return { 13, 19, QFont::Normal, QColor(102, 108, 128), 2, 2 * maxLettersALine };
    case TextField::Style::Value:
        return { 13, 19, QFont::Normal, QColor(30, 34, 52), 2, 2 * maxLettersALine };
    case TextField::Style::Countdown:
        break;
    }
    return { 13, 19, QFont::Normal, QColor(58, 64, 86), unlimited, maxLetters };
}

constexpr int captionWidth = 116;
constexpr QChar ellipsis(u'\u2026');
constexpr QChar lineSeparator(QChar::LineSeparator);
constexpr QChar firstStrongIsolate(u'\u2068');
constexpr QChar popDirectionalIsolate(u'\u2069');
const QColor selectionColor(190, 212, 250);

/// The place at or before a position at which a letter with all its marks ends.
qsizetype letterEnd(const QString &text, qsizetype position) {
    constexpr qsizetype maxLetter = 64;
    const auto start = std::max<qsizetype>(0, position - maxLetter);
    const auto part = text.mid(start, 2 * maxLetter);
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, part);
    finder.setPosition(position - start);
    const auto end = finder.isAtBoundary() ? position - start : finder.toPreviousBoundary();
    return end > 0 ? start + end : position;
}

QString shortened(const QString &text, qsizetype limit, bool inMiddle) {
    if (text.size() <= limit)
        return text;
    if (!inMiddle)
        return text.left(letterEnd(text, limit)) + ellipsis;
    return text.left(letterEnd(text, limit / 2)) + ellipsis
        + text.mid(letterEnd(text, text.size() - limit / 2));
}

using Scripts = std::set<QChar::Script>;

const Scripts ordinaryScripts { QChar::Script_Common, QChar::Script_Inherited, QChar::Script_Latin };

bool isOfOrdinaryScripts(const QString &text) {
    constexpr char16_t firstBeyondLatin = 0x250;
    return std::all_of(text.begin(), text.end(), [](QChar each) { return each < firstBeyondLatin; });
}

/// The text with every letter as missing that is not assigned, or of a script for which there is no room in
/// `scripts`; scripts that are new there are added.
QString withFewScripts(const QString &text, Scripts &scripts) {
    // Every script in which a letter is missing has all fonts of the machine loaded, for each size of text.
    constexpr std::size_t maxScripts = 3; // beside the ordinary ones
    constexpr char32_t missing = QChar::ReplacementCharacter;
    if (isOfOrdinaryScripts(text))
        return text;
    const auto maxSize = ordinaryScripts.size() + maxScripts;
    auto letters = text.toUcs4();
    for (auto &letter : letters) {
        const auto script = QChar::script(letter);
        const auto category = QChar::category(letter);
        const bool isUnknown = category == QChar::Other_NotAssigned || category == QChar::Other_PrivateUse;
        if (isUnknown || (!scripts.contains(script) && scripts.size() == maxSize))
            letter = missing;
        else
            scripts.insert(script);
    }
    return QString::fromUcs4(reinterpret_cast<const char32_t *>(letters.constData()), letters.size());
}

// A picture made of several characters falls apart where one of them is in the text's own font, too.
bool isJoinedPicture(const QString &letter) {
    constexpr char16_t pictureVariant = 0xfe0f;
    constexpr char32_t firstPicture = 0x1f000;
    constexpr char32_t lastPicture = 0x1ffff;
    constexpr qsizetype singleSize = 2;
    if (letter.contains(QChar(pictureVariant)))
        return true;
    if (letter.size() <= singleSize || !letter[0].isHighSurrogate())
        return false;
    const auto first = QChar::surrogateToUcs4(letter[0], letter[1]);
    return first >= firstPicture && first <= lastPicture;
}

QList<QTextLayout::FormatRange> picturesIn(const QString &text) {
    QList<QTextLayout::FormatRange> pictures;
    const auto isPartOfPicture = [](QChar each) { return each.isSurrogate() || each == u'\ufe0f'; };
    if (std::none_of(text.begin(), text.end(), isPartOfPicture))
        return pictures;
    QTextCharFormat format;
    format.setFontFamilies({ QStringLiteral("emoji") });
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    for (qsizetype start = 0, end = finder.toNextBoundary(); end >= 0; end = finder.toNextBoundary()) {
        if (isJoinedPicture(text.mid(start, end - start)))
            pictures.append({ static_cast<int>(start), static_cast<int>(end - start), format });
        start = end;
    }
    return pictures;
}

// So that what follows the number stands still while it counts.
QList<QTextLayout::FormatRange> figuresOfOneWidth(const QString &text, const QFont &font) {
    const QFontMetricsF metrics(font);
    double widest = 0;
    for (char16_t figure = u'0'; figure <= u'9'; ++figure)
        widest = std::max(widest, metrics.horizontalAdvance(QChar(figure)));
    QList<QTextLayout::FormatRange> figures;
    for (int position = 0; position < text.size(); ++position) {
        const auto figure = text[position];
        const double missing
            = figure >= u'0' && figure <= u'9' ? widest - metrics.horizontalAdvance(figure) : 0;
        constexpr double visible = 0.05;
        if (missing < visible)
            continue;
        QTextCharFormat format;
        format.setFontLetterSpacingType(QFont::AbsoluteSpacing);
        format.setFontLetterSpacing(missing);
        figures.append({ position, 1, format });
    }
    return figures;
}

} // namespace

TextField::TextField(QWidget *parent)
    : QWidget(parent) {
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Preferred);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
    layout_.setCacheEnabled(true);
    setTextStyle(style_);
}

void TextField::setStringValue(const QString &text) {
    if (text == text_)
        return;
    const int heightBefore = isVisible() ? heightForWidth(width()) : -1;
    text_ = text;
    textChanged();
    // A line that stays as high as it was, as a countdown's does every second, moves nothing else.
    if (heightBefore < 0 || heightBefore != heightForWidth(width()))
        updateGeometry();
    update();
    // Nobody wants every second of a countdown read out.
    if (style_ != Style::Countdown)
        announce();
}

void TextField::announce() {
    if (!QAccessible::isActive() || !isVisible())
        return;
    QAccessibleEvent changed(this, QAccessible::NameChanged);
    QAccessible::updateAccessibility(&changed);
    if (style_ != Style::Countdown)
        return;
    QAccessibleEvent alert(this, QAccessible::Alert);
    QAccessible::updateAccessibility(&alert);
}

void TextField::setTextStyle(Style style) {
    style_ = style;
    const auto look = lookOf(style_);
    setFont(scaledFont(look.size, look.weight));
    if (style_ == Style::Caption)
        setFixedWidth(qRound(captionWidth * textScale()));
    // A countdown line keeps its place while it is hidden, so that nothing jumps when it appears.
    auto policy = sizePolicy();
    policy.setRetainSizeWhenHidden(style_ == Style::Countdown);
    setSizePolicy(policy);
    textChanged();
    updateGeometry();
}

void TextField::resetCursorRects() {
    if (isSelectable())
        setCursor(Qt::IBeamCursor);
    else
        unsetCursor();
}

void TextField::textChanged() {
    isShaped_ = false;
    laidOutFor_ = -1;
    anchor_ = cursor_ = 0;
    setFocusPolicy(isSelectable() ? Qt::StrongFocus : Qt::NoFocus);
}

bool TextField::isSelectable() const {
    return style_ != Style::Caption && style_ != Style::Countdown && !text_.isEmpty();
}

QColor TextField::textColor() const {
    return lookOf(style_).color;
}

double TextField::lineHeight() const {
    return std::max(
        std::round(lookOf(style_).lineHeight * textScale()), std::ceil(QFontMetricsF(font()).height()));
}

// A notice has few scripts in all of its fields together; those of the first ones count.
QString TextField::readable(const QString &text) const {
    if (isOfOrdinaryScripts(text))
        return text;
    auto scripts = ordinaryScripts;
    const auto fields = window()->findChildren<TextField *>();
    for (const auto *field : fields) {
        if (field == this)
            break;
        withFewScripts(field->shortenedText(), scripts);
    }
    return withFewScripts(text, scripts);
}

QString TextField::shortenedText() const {
    return shortened(text_, lookOf(style_).maxLetters, cutInMiddle_);
}

// Each paragraph runs as its own first strong letter says, and nothing in it reorders the rest.
QString TextField::shownText() const {
    auto text = readable(shortenedText());
    text.replace(QStringLiteral("\r\n"), QString(lineSeparator));
    for (const auto character : { QChar(u'\n'), QChar(u'\r'), QChar(QChar::ParagraphSeparator) })
        text.replace(character, lineSeparator);
    const auto end = QString(popDirectionalIsolate) + lineSeparator + firstStrongIsolate;
    if (text.contains(lineSeparator))
        text = firstStrongIsolate + text.replace(lineSeparator, end) + popDirectionalIsolate;
    return text;
}

void TextField::shape(const QString &text) const {
    QTextOption option;
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    const bool isOneParagraph = !text.startsWith(firstStrongIsolate);
    const bool isOther = isOneParagraph && text.isRightToLeft() != isRightToLeft()
        && std::any_of(text.begin(), text.end(), [](QChar each) {
               return each.direction() == QChar::DirL || each.direction() == QChar::DirR
                   || each.direction() == QChar::DirAL;
           });
    const auto opposite = isRightToLeft() ? Qt::LeftToRight : Qt::RightToLeft;
    option.setTextDirection(isOther ? opposite : layoutDirection());
    // The edge is the reader's, whatever way the text runs.
    option.setAlignment(Qt::AlignAbsolute | (isRightToLeft() ? Qt::AlignRight : Qt::AlignLeft));
    layout_.setText(text);
    layout_.setFont(font());
    layout_.setFormats(style_ == Style::Countdown ? figuresOfOneWidth(text, font()) : picturesIn(text));
    layout_.setTextOption(option);
    // Begun once for all widths and never ended, which would shape the letters again.
    layout_.beginLayout();
}

int TextField::breakLines(double width, int limit, NarrowLine narrow) const {
    layout_.clearLayout();
    while (layout_.lineCount() < limit) {
        const bool isNarrow = layout_.lineCount() == narrow.index;
        auto line = layout_.createLine();
        if (!line.isValid())
            break;
        line.setLineWidth(isNarrow ? narrow.width : width);
    }
    return layout_.lineCount();
}

// As many whole lines as there may be, the last of them with an ellipsis; where the middle is left out, the
// last line holds the end.
QString TextField::cutText(double width) const {
    const auto text = layout_.text();
    const int start = layout_.lineAt(lookOf(style_).maxLines - 1).textStart();
    const QFontMetricsF metrics(font());
    if (cutInMiddle_) {
        const auto end = text.mid(letterEnd(text, std::max<qsizetype>(start, text.size() - maxLettersALine)));
        return text.left(start) + lineSeparator
            + metrics.elidedText(ellipsis + end, Qt::ElideLeft, width - 1);
    }
    auto last = text.mid(start, maxLettersALine);
    if (const auto paragraphEnd = last.indexOf(lineSeparator); paragraphEnd >= 0)
        last.truncate(paragraphEnd);
    const auto head = text.left(start);
    const bool isForced = head.isEmpty() || head.endsWith(lineSeparator);
    return head + (isForced ? QString() : QString(lineSeparator))
        + metrics.elidedText(last + ellipsis, Qt::ElideRight, width - 1);
}

bool TextField::breaksAtBlanks() const {
    for (int index = 1; index < layout_.lineCount(); ++index) {
        if (!layout_.text()[layout_.lineAt(index).textStart() - 1].isSpace())
            return false;
    }
    return true;
}

// The lines of a heading are about equally long: the narrowest width in which there are no more of them.
void TextField::balanceLines(double width, int lines) const {
    constexpr double step = 0.03;
    constexpr double narrowest = 0.5;
    double fitted = width;
    double fittedAtBlanks = 0;
    for (double part = 1; part > narrowest && breakLines(part * width, lines + 1) == lines; part -= step) {
        fitted = part * width;
        if (breaksAtBlanks())
            fittedAtBlanks = fitted;
    }
    breakLines(fittedAtBlanks > 0 ? fittedAtBlanks : fitted, unlimited);
}

// A short word alone, or a few letters of a text that breaks between any two.
bool TextField::endsInShortWord(double width) const {
    constexpr double shortWord = 0.35;
    constexpr double shortLine = 0.25;
    const auto line = layout_.lineAt(layout_.lineCount() - 1);
    const auto text = QStringView(layout_.text()).mid(line.textStart(), line.textLength()).trimmed();
    const bool isWord = layout_.text()[line.textStart() - 1].isSpace() && !text.contains(u' ');
    return line.naturalTextWidth() < (isWord ? shortWord : shortLine) * width;
}

// A text that would end in a short word takes more of the line before into its last one.
void TextField::lengthenLastLine(double width, int lines) const {
    constexpr double step = 0.03;
    constexpr double narrowest = 0.4;
    for (double part = 1 - step; endsInShortWord(width) && part > narrowest; part -= step) {
        if (breakLines(width, lines + 1, { lines - 2, part * width }) != lines)
            break;
    }
    if (layout_.lineCount() != lines || endsInShortWord(width))
        breakLines(width, unlimited);
}

void TextField::layOutFor(double width) const {
    if (laidOutFor_ == width)
        return;
    laidOutFor_ = width;
    if (!std::exchange(isShaped_, true))
        shape(shownText());
    // A caption keeps clear of its value.
    constexpr double captionGap = 8;
    const double column = style_ == Style::Caption ? std::max(width - captionGap, 1.0) : width;
    const int limit = lookOf(style_).maxLines;
    int lines = breakLines(column, limit + 1);
    isCut_ = lines > limit;
    if (isCut_) {
        shape(cutText(column));
        isShaped_ = false;
        lines = breakLines(column, limit);
    }
    constexpr int maxFittedLines = 40;
    if (!isCut_ && lines > 1 && lines <= maxFittedLines) {
        if (style_ == Style::Heading)
            balanceLines(column, lines);
        else
            lengthenLastLine(column, lines);
    }
    const double height = lineHeight();
    for (int index = 0; index < layout_.lineCount(); ++index) {
        auto line = layout_.lineAt(index);
        // By the baseline: a line in another script comes from a font of another height.
        line.setPosition(
            { isRightToLeft() ? width - line.width() : 0, index * height + baseline() - line.ascent() });
    }
    isCut_ = isCut_ || shortenedText() != text_;
}

double TextField::measuredHeight(double width) const {
    if (text_.isEmpty())
        return 0;
    layOutFor(width);
    return (layout_.lineCount() + (isCut_ ? 1 : 0)) * lineHeight();
}

// A text has no width of its own and takes the one that there is; its height follows from that.
QSize TextField::sizeHint() const {
    constexpr int ordinaryWidth = 300;
    return { ordinaryWidth, minimumSizeHint().height() };
}

QSize TextField::minimumSizeHint() const {
    return { 0, text_.isEmpty() ? 0 : static_cast<int>(lineHeight()) };
}

int TextField::heightForWidth(int width) const {
    if (text_.isEmpty())
        return 0;
    layOutFor(std::max(width, 1));
    return static_cast<int>(layout_.lineCount() * lineHeight());
}

// In a line.
double TextField::baseline() const {
    const QFontMetricsF metrics(font());
    return std::floor((lineHeight() - metrics.height()) / 2 + metrics.ascent());
}

// The middle of a countdown's capitals is that of its height, as in the button beside it.
double TextField::top() const {
    if (style_ != Style::Countdown)
        return 0;
    const double others = (layout_.lineCount() - 1) * lineHeight();
    const double capital = QFontMetricsF(font()).capHeight();
    return std::max(0.0, std::round((height() - others + capital) / 2) - baseline());
}

void TextField::paintEvent(QPaintEvent *event) {
    if (text_.isEmpty())
        return;
    layOutFor(width());
    QPainter painter(this);
    painter.setPen(textColor());
    QList<QTextLayout::FormatRange> selections;
    if (anchor_ != cursor_) {
        QTextCharFormat format;
        format.setBackground(selectionColor);
        selections.append({ std::min(anchor_, cursor_), std::abs(anchor_ - cursor_), format });
    }
    layout_.draw(&painter, { 0, top() }, selections, event->rect());
    if (NoticeStyle::showsFocusRing(*this))
        NoticeStyle::drawFocusRing(painter, QRectF(rect()).adjusted(0.25, 0.25, -0.25, -0.25), textColor());
}

// The whole text in lines that fit on a screen. As markup with everything escaped: a text that only looks
// like markup would be taken for it.
QString TextField::expansionToolTip() const {
    constexpr qsizetype longText = 1000;
    constexpr double narrow = 420;
    constexpr double wide = 840;
    QStringList lines;
    const auto paragraphs = readable(shortened(text_, maxLetters, false)).split(u'\n');
    for (const auto &paragraph : paragraphs) {
        QTextLayout layout(paragraph, QToolTip::font());
        QTextOption option;
        option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
        layout.setTextOption(option);
        layout.beginLayout();
        for (auto line = layout.createLine(); line.isValid(); line = layout.createLine()) {
            line.setLineWidth(text_.size() > longText ? wide : narrow);
            lines << paragraph.mid(line.textStart(), line.textLength());
        }
        layout.endLayout();
    }
    return Qt::convertFromPlainText(lines.join(u'\n'), Qt::WhiteSpacePre);
}

bool TextField::event(QEvent *event) {
    if (event->type() == QEvent::ToolTip && allowsExpansionToolTips_) {
        QToolTip::showText(static_cast<QHelpEvent *>(event)->globalPos(), expansionToolTip(), this);
        return true;
    }
    return QWidget::event(event);
}

void TextField::changeEvent(QEvent *event) {
    if (event->type() == QEvent::FontChange || event->type() == QEvent::LayoutDirectionChange)
        textChanged();
    QWidget::changeEvent(event);
}

QString TextField::selectedText() const {
    if (anchor_ == cursor_)
        return {};
    if (isCut_)
        return text_;
    auto selected = layout_.text().mid(std::min(anchor_, cursor_), std::abs(anchor_ - cursor_));
    selected.remove(firstStrongIsolate).remove(popDirectionalIsolate);
    return selected.replace(lineSeparator, QChar(u'\n'));
}

int TextField::positionAt(const QPointF &point) const {
    if (layout_.lineCount() == 0)
        return 0;
    const int index = static_cast<int>((point.y() - top()) / lineHeight());
    return layout_.lineAt(std::clamp(index, 0, layout_.lineCount() - 1)).xToCursor(point.x());
}

void TextField::select(int anchor, int cursor) {
    anchor_ = anchor;
    cursor_ = cursor;
    update();
}

void TextField::mousePressEvent(QMouseEvent *event) {
    if (!isSelectable() || event->button() != Qt::LeftButton)
        return event->ignore();
    const int position = positionAt(event->position());
    select(position, position);
}

void TextField::mouseMoveEvent(QMouseEvent *event) {
    if (event->buttons() & Qt::LeftButton)
        select(anchor_, positionAt(event->position()));
}

// Where there is a clipboard of what was selected with the mouse last, it has the text at once.
void TextField::mouseReleaseEvent(QMouseEvent *) {
    auto *clipboard = QGuiApplication::clipboard();
    if (clipboard->supportsSelection() && anchor_ != cursor_)
        clipboard->setText(selectedText(), QClipboard::Selection);
}

void TextField::mouseDoubleClickEvent(QMouseEvent *event) {
    if (!isSelectable())
        return event->ignore();
    const int next = layout_.nextCursorPosition(positionAt(event->position()), QTextLayout::SkipWords);
    select(layout_.previousCursorPosition(next, QTextLayout::SkipWords), next);
}

// What is not about the selection goes on to the window.
void TextField::keyPressEvent(QKeyEvent *event) {
    if (event->matches(QKeySequence::Copy))
        QGuiApplication::clipboard()->setText(selectedText());
    else if (event->matches(QKeySequence::SelectAll))
        select(0, static_cast<int>(layout_.text().size()));
    else if (event->matches(QKeySequence::SelectNextChar))
        select(anchor_, layout_.nextCursorPosition(cursor_));
    else if (event->matches(QKeySequence::SelectPreviousChar))
        select(anchor_, layout_.previousCursorPosition(cursor_));
    else if (event->matches(QKeySequence::SelectNextWord))
        select(anchor_, layout_.nextCursorPosition(cursor_, QTextLayout::SkipWords));
    else if (event->matches(QKeySequence::SelectPreviousWord))
        select(anchor_, layout_.previousCursorPosition(cursor_, QTextLayout::SkipWords));
    else
        event->ignore();
}

void TextField::focusInEvent(QFocusEvent *event) {
    if (event->reason() == Qt::TabFocusReason || event->reason() == Qt::BacktabFocusReason)
        select(0, static_cast<int>(layout_.text().size()));
    QWidget::focusInEvent(event);
}

void TextField::focusOutEvent(QFocusEvent *event) {
    select(0, 0);
    QWidget::focusOutEvent(event);
}
