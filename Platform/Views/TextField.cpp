#include "Platform/Views/TextField.h"

#include <QAccessible>
#include <QApplication>
#include <QHelpEvent>
#include <QPaintEvent>
#include <QPainter>
#include <QToolTip>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace {

/// Sizes in pixels at scale 1 on a desktop with ordinary text; they grow with the desktop's text size.
struct Look {
    double size;
    double lineHeight;
    QFont::Weight weight;
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

// More than this is neither laid out nor shown; the text as a value stays whole.
constexpr qsizetype longestShown = 100'000;

constexpr double unlimitedHeight = std::numeric_limits<double>::max();

} // namespace

/// The text cut into lines for one width.
struct TextField::Lines {
    double width = -1;
    double height = 0; ///< of the lines that are shown
    bool cut = false; ///< by the limit of lines
    int count = 0;
    std::vector<std::unique_ptr<QTextLayout>> paragraphs;
};

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
    lines_.reset();
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
    QAccessibleEvent changed(this, QAccessible::NameChanged);
    QAccessible::updateAccessibility(&changed);
}

void TextField::setTextStyle(Style style) {
    style_ = style;
    applyStyle();
}

void TextField::setMaximumLines(int lines) {
    maximumLines_ = lines;
    lines_.reset();
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
    QPalette colors = palette();
    colors.setColor(QPalette::WindowText, look.color);
    setPalette(colors);
    // A countdown line keeps its place while it is hidden, so that nothing jumps when it appears.
    auto policy = sizePolicy();
    policy.setRetainSizeWhenHidden(style_ == Style::Countdown);
    setSizePolicy(policy);
    lines_.reset();
    updateGeometry();
}

double TextField::scaledPixels(double pixels) const {
    return pixels * textScale() * logicalDpiY() / dotsPerInchAtScaleOne;
}

double TextField::lineHeight() const {
    return std::max(scaledPixels(lookOf(style_).lineHeight), std::ceil(QFontMetricsF(font()).height()));
}

Qt::LayoutDirection TextField::textDirection(const QString &paragraph) const {
    // Each paragraph runs as its own first strong letter says, so that nothing in it reorders the rest.
    for (const QChar character : paragraph) {
        switch (character.direction()) {
        case QChar::DirL:
            return Qt::LeftToRight;
        case QChar::DirR:
        case QChar::DirAL:
            return Qt::RightToLeft;
        default:
            break;
        }
    }
    return layoutDirection();
}

const TextField::Lines &TextField::linesFor(double width) const {
    if (lines_ && lines_->width == width)
        return *lines_;
    lines_ = std::make_unique<Lines>();
    lines_->width = width;

    auto shown = text_.left(longestShown);
    shown.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    shown.replace(u'\r', u'\n');
    shown.replace(QChar(QChar::ParagraphSeparator), QChar(u'\n'));
    const double height = lineHeight();
    const QFontMetricsF metrics(font());
    const double baseline = (height - metrics.height()) / 2 + metrics.ascent();
    const auto paragraphs = shown.isEmpty() ? QStringList() : shown.split(u'\n');
    for (const auto &paragraph : paragraphs) {
        if (maximumLines_ > 0 && lines_->count >= maximumLines_) {
            lines_->cut = true;
            break;
        }
        auto layout = std::make_unique<QTextLayout>(paragraph, font());
        QTextOption option;
        option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
        option.setTextDirection(textDirection(paragraph));
        // The edge follows the window, whatever way the text runs.
        option.setAlignment(layoutDirection() == Qt::RightToLeft ? Qt::AlignRight | Qt::AlignAbsolute
                                                                 : Qt::AlignLeft | Qt::AlignAbsolute);
        layout->setTextOption(option);
        layout->setCacheEnabled(true);
        layout->beginLayout();
        for (;;) {
            auto line = layout->createLine();
            if (!line.isValid())
                break;
            line.setLineWidth(width);
            // By the baseline: a line in another script comes from a font of another height.
            line.setPosition(QPointF(0, lines_->count * height + baseline - line.ascent()));
            ++lines_->count;
            if (maximumLines_ > 0 && lines_->count == maximumLines_) {
                lines_->cut = line.textStart() + line.textLength() < paragraph.size();
                break;
            }
        }
        layout->endLayout();
        lines_->paragraphs.push_back(std::move(layout));
    }
    lines_->cut = lines_->cut || text_.size() > longestShown;
    lines_->height = lines_->count * height;
    return *lines_;
}

double TextField::measuredHeight(double width) const {
    if (maximumLines_ == 0)
        return linesFor(width).height;
    // A copy without the limit. It is asked once a notice.
    double height = 0;
    const auto paragraphs = text_.left(longestShown).split(u'\n');
    for (const auto &paragraph : paragraphs) {
        QTextLayout layout(paragraph, font());
        QTextOption option;
        option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
        layout.setTextOption(option);
        layout.beginLayout();
        for (auto line = layout.createLine(); line.isValid(); line = layout.createLine()) {
            line.setLineWidth(width);
            height += lineHeight();
        }
        layout.endLayout();
    }
    return text_.isEmpty() ? 0 : std::min(height, unlimitedHeight);
}

QSize TextField::sizeHint() const {
    constexpr int longestMeasured = 400;
    const QFontMetricsF metrics(font());
    const auto first = text_.left(longestMeasured).section(u'\n', 0, 0);
    const int width = static_cast<int>(std::ceil(metrics.horizontalAdvance(first))) + 1;
    return { width, heightForWidth(std::max(width, 1)) };
}

QSize TextField::minimumSizeHint() const {
    return { 0, text_.isEmpty() ? 0 : static_cast<int>(std::ceil(lineHeight())) };
}

int TextField::heightForWidth(int width) const {
    return static_cast<int>(std::ceil(linesFor(std::max(width, 1)).height));
}

void TextField::paintEvent(QPaintEvent *event) {
    const auto &lines = linesFor(this->width());
    QPainter painter(this);
    painter.setPen(palette().color(QPalette::WindowText));
    // A text that scrolls is as high as its lines; there, where and what is painted is the same.
    const QRectF visible
        = lines.height > this->height() + 1 || lines.count < 100 ? QRectF(rect()) : QRectF(event->rect());
    const double height = lineHeight();
    if (alignment_ & Qt::AlignVCenter)
        painter.translate(0, std::floor(std::max(0.0, (this->height() - lines.height) / 2)));
    int number = 0;
    for (const auto &layout : lines.paragraphs) {
        for (int index = 0; index < layout->lineCount(); ++index, ++number) {
            const auto line = layout->lineAt(index);
            if (number * height > visible.bottom() || (number + 1) * height < visible.top())
                continue;
            const bool last = number + 1 == lines.count;
            if (!lines.cut || !last) {
                line.draw(&painter, QPointF());
                continue;
            }
            // The last line of a text that goes on: as much of it as fits with an ellipsis.
            const QFontMetricsF metrics(font());
            constexpr int longestElided = 1000;
            const auto rest = layout->text().mid(line.textStart(), longestElided) + QChar(u'\u2026');
            const auto elided = metrics.elidedText(rest, Qt::ElideRight, this->width());
            QTextLayout ending(elided, font());
            ending.setTextOption(layout->textOption());
            ending.beginLayout();
            auto endingLine = ending.createLine();
            endingLine.setNumColumns(static_cast<int>(elided.size()));
            endingLine.setLineWidth(this->width() + 1);
            ending.endLayout();
            ending.draw(&painter, line.position() + QPointF(0, line.ascent() - endingLine.ascent()));
        }
    }
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
        lines_.reset();
    QWidget::changeEvent(event);
}
