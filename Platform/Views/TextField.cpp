#include "Platform/Views/TextField.h"

#include <QAccessible>
#include <QApplication>
#include <QHelpEvent>
#include <QPaintEvent>
#include <QPainter>
#include <QToolTip>

#include <algorithm>
#include <cmath>

namespace {

/// Sizes in pixels at scale 1 on a desktop with ordinary text; they grow with the desktop's text size.
struct Look {
    double size = 0;
    double lineHeight = 0;
    QFont::Weight weight = QFont::Normal;
    QColor color;
};

Look lookOf(TextField::Style style) {
    switch (style) {
    case TextField::Style::Heading:
        return { 17, 24, QFont::DemiBold, QColor(30, 34, 52) };
    case TextField::Style::Body:
        return { 13.5, 20, QFont::Normal, QColor(58, 64, 86) };
    case TextField::Style::Caption:
        return { 13, 19, QFont::Normal, QColor(102, 108, 128) };
    case TextField::Style::Value:
        return { 13, 19, QFont::Normal, QColor(30, 34, 52) };
    case TextField::Style::Countdown:
        return { 12.5, 17, QFont::Normal, QColor(102, 108, 128) };
    }
    return {};
}

constexpr double dotsPerInchAtScaleOne = 96;
constexpr double pointsPerInch = 72;

// Desktops set for large text have a large font; an ordinary one leaves the sizes as they are.
double textScale() {
    constexpr double largestOrdinaryPoints = 11.5;
    constexpr double mostScale = 2;
    return std::clamp(QApplication::font().pointSizeF() / largestOrdinaryPoints, 1.0, mostScale);
}

} // namespace

TextField::TextField(QWidget *parent)
    : QWidget(parent) {
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Preferred);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
    applyStyle();
}

TextField::~TextField() = default;

void TextField::setStringValue(const QString &text) {
    if (text == text_)
        return;
    const int heightBefore = isVisible() ? heightForWidth(width()) : -1;
    wrapped_.reset();
    text_ = text;
    // A line that stays as high as it was, as a countdown's does every second, moves nothing else.
    if (heightBefore < 0 || heightBefore != heightForWidth(width()))
        updateGeometry();
    update();
    // Nobody wants every second of a countdown read out.
    if (style_ != Style::Countdown)
        announce();
}

void TextField::setAlignment(Qt::Alignment alignment) {
    alignment_ = alignment;
    update();
}

void TextField::announce() {
    // A field in no window, as in a notice that was replaced, has nothing to say.
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
    applyStyle();
}

void TextField::setMaximumLines(int lines) {
    maximumLines_ = lines;
    wrapped_.reset();
    updateGeometry();
}

void TextField::resetCursorRects() {
    unsetCursor();
}

void TextField::applyStyle() {
    const auto look = lookOf(style_);
    QFont styled = QApplication::font();
    styled.setPointSizeF(look.size * textScale() * pointsPerInch / dotsPerInchAtScaleOne);
    styled.setWeight(look.weight);
    // Letters stand where the font wants them, also between two pixels.
    styled.setHintingPreference(QFont::PreferVerticalHinting);
    setFont(styled);
    // A countdown line keeps its place while it is hidden, so that nothing jumps when it appears.
    auto policy = sizePolicy();
    policy.setRetainSizeWhenHidden(style_ == Style::Countdown);
    setSizePolicy(policy);
    wrapped_.reset();
    updateGeometry();
}

QColor TextField::textColor() const {
    return lookOf(style_).color;
}

double TextField::scaledPixels(double pixels) const {
    return pixels * textScale() * logicalDpiY() / dotsPerInchAtScaleOne;
}

double TextField::lineHeight() const {
    return std::max(scaledPixels(lookOf(style_).lineHeight), std::ceil(QFontMetricsF(font()).height()));
}

WrappedText &TextField::wrapped() const {
    if (!wrapped_)
        wrapped_
            = std::make_unique<WrappedText>(text_, font(), layoutDirection(), lineHeight(), maximumLines_);
    return *wrapped_;
}

double TextField::measuredHeight(double width) const {
    return wrapped().unlimitedHeightFor(width);
}

QSize TextField::sizeHint() const {
    // A long text has no width of its own.
    constexpr qsizetype longestOnOneLine = 400;
    constexpr double unlimited = 100'000;
    const double natural = text_.size() > longestOnOneLine ? 0 : wrapped().extentFor(unlimited).naturalWidth;
    const int width = static_cast<int>(std::ceil(natural)) + 1;
    return { width, heightForWidth(width) };
}

QSize TextField::minimumSizeHint() const {
    return { 0, text_.isEmpty() ? 0 : static_cast<int>(std::ceil(lineHeight())) };
}

int TextField::heightForWidth(int width) const {
    return static_cast<int>(std::ceil(wrapped().extentFor(std::max(width, 1)).height));
}

void TextField::paintEvent(QPaintEvent *event) {
    const auto extent = wrapped().extentFor(width());
    const auto &paragraphs = wrapped().linesFor(width());
    QPainter painter(this);
    painter.setPen(textColor());
    double top = 0;
    if (alignment_ & Qt::AlignVCenter)
        top = std::floor(std::max(0.0, (height() - extent.height) / 2));
    painter.translate(0, top);
    const auto visible = QRectF(event->rect()).translated(0, -top);
    const double eachHeight = lineHeight();
    int number = 0;
    for (const auto &[paragraph, isShaped] : paragraphs) {
        for (int index = 0; index < paragraph->lineCount(); ++index, ++number) {
            // A line may stick out of its own height by an accent.
            if ((number - 1) * eachHeight > visible.bottom() || (number + 2) * eachHeight < visible.top())
                continue;
            const auto line = paragraph->lineAt(index);
            if (extent.isCut && number + 1 == extent.lines)
                drawEllipsis(painter, *paragraph, line);
            else
                line.draw(&painter, QPointF());
        }
    }
}

// The last line of a text that goes on: as much of it as fits with an ellipsis.
void TextField::drawEllipsis(QPainter &painter, const QTextLayout &paragraph, const QTextLine &line) const {
    constexpr qsizetype longestElided = 1000;
    const auto rest = paragraph.text().mid(line.textStart(), longestElided) + QChar(u'\u2026');
    const auto elided = QFontMetricsF(font()).elidedText(rest, Qt::ElideRight, width());
    QTextLayout ending(elided, font());
    ending.setTextOption(paragraph.textOption());
    ending.beginLayout();
    auto endingLine = ending.createLine();
    endingLine.setNumColumns(static_cast<int>(elided.size()));
    endingLine.setLineWidth(width() + 1);
    ending.endLayout();
    ending.draw(&painter, line.position() + QPointF(0, line.ascent() - endingLine.ascent()));
}

// The whole text in lines that fit on a screen. As markup with everything escaped: a text that only looks
// like markup would be taken for it.
QString TextField::expansionToolTip() const {
    constexpr qsizetype longText = 1000;
    constexpr qsizetype longestTip = 8000;
    constexpr double narrow = 420;
    constexpr double wide = 840;
    const auto shown = text_.left(longestTip);
    QStringList lines;
    const auto paragraphs = shown.split(u'\n');
    for (const auto &paragraph : paragraphs) {
        QTextLayout layout(paragraph, QToolTip::font());
        QTextOption option;
        option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
        layout.setTextOption(option);
        layout.beginLayout();
        for (auto line = layout.createLine(); line.isValid(); line = layout.createLine()) {
            line.setLineWidth(shown.size() > longText ? wide : narrow);
            lines << paragraph.mid(line.textStart(), line.textLength());
        }
        layout.endLayout();
    }
    const auto ending = text_.size() > longestTip ? QStringLiteral("\u2026") : QString();
    return Qt::convertFromPlainText(lines.join(u'\n') + ending, Qt::WhiteSpacePre);
}

bool TextField::event(QEvent *event) {
    if (event->type() == QEvent::ToolTip && allowsExpansionToolTips_) {
        QToolTip::showText(static_cast<QHelpEvent *>(event)->globalPos(), expansionToolTip(), this);
        return true;
    }
    return QWidget::event(event);
}

void TextField::changeEvent(QEvent *event) {
    if (event->type() == QEvent::FontChange || event->type() == QEvent::LayoutDirectionChange
        || event->type() == QEvent::StyleChange)
        wrapped_.reset();
    QWidget::changeEvent(event);
}
