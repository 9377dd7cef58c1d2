#include "Platform/Views/WrappedText.h"

#include <QFontMetricsF>
#include <QStringList>

#include <algorithm>
#include <utility>

namespace {

// More than this is neither laid out nor shown.
constexpr qsizetype longestShown = 100'000;

constexpr std::size_t mostKnown = 8;

// Each paragraph runs as its own first strong letter says, so that nothing in it reorders the rest.
Qt::LayoutDirection directionOf(const QString &paragraph, Qt::LayoutDirection fallback) {
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
    return fallback;
}

// A word is looked at to its end for every line that it fills: one that fills many gets places to break at.
QString withLongWordsDivided(const QString &text) {
    constexpr qsizetype longestWord = 5000;
    constexpr qsizetype division = 200;
    const QChar zeroWidthSpace(u'\u200b');
    QString divided;
    qsizetype wordStart = 0;
    for (qsizetype position = 0; position <= text.size(); ++position) {
        if (position < text.size() && !text[position].isSpace())
            continue;
        const auto word = QStringView(text).mid(wordStart, position - wordStart);
        if (word.size() <= longestWord) {
            divided.append(word);
        } else {
            qsizetype start = 0;
            while (start < word.size()) {
                auto end = std::min(start + division, word.size());
                while (end < word.size() && (word[end].isLowSurrogate() || word[end].isMark()))
                    ++end;
                divided.append(word.mid(start, end - start));
                divided.append(zeroWidthSpace);
                start = end;
            }
        }
        if (position < text.size())
            divided.append(text[position]);
        wordStart = position + 1;
    }
    return divided;
}

QStringList paragraphsOf(const QString &whole) {
    auto text = withLongWordsDivided(whole);
    if (text.isEmpty())
        return {};
    text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    text.replace(u'\r', u'\n');
    text.replace(QChar(QChar::ParagraphSeparator), QChar(u'\n'));
    return text.split(u'\n');
}

} // namespace

WrappedText::WrappedText(const QString &text, const QFont &font, Qt::LayoutDirection direction,
    double lineHeight, int maximumLines)
    : lineHeight_(lineHeight)
    , maximumLines_(maximumLines)
    , isShortened_(text.size() > longestShown) {
    const QFontMetricsF metrics(font);
    baseline_ = (lineHeight - metrics.height()) / 2 + metrics.ascent();
    const auto paragraphs = paragraphsOf(text.left(longestShown));
    for (const auto &paragraph : paragraphs) {
        auto layout = std::make_unique<QTextLayout>(paragraph, font);
        QTextOption option;
        option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
        option.setTextDirection(directionOf(paragraph, direction));
        // The edge is the reader's, whatever way the text runs.
        option.setAlignment(direction == Qt::RightToLeft ? Qt::AlignRight | Qt::AlignAbsolute
                                                         : Qt::AlignLeft | Qt::AlignAbsolute);
        layout->setTextOption(option);
        paragraphs_.push_back({ .layout = std::move(layout) });
    }
}

WrappedText::Extent WrappedText::extentFor(double width) {
    // Lines that were broken nowhere are the same in every width that holds the longest of them.
    const auto same = std::find_if(known_.begin(), known_.end(), [width](const Extent &each) {
        return each.width == width || (!each.isWrapped && each.naturalWidth <= width);
    });
    if (same != known_.end())
        return *same;
    const auto extent = breakLines(width, maximumLines_);
    if (known_.size() == mostKnown)
        known_.erase(known_.begin());
    known_.push_back(extent);
    return extent;
}

const std::vector<WrappedText::Paragraph> &WrappedText::linesFor(double width) {
    if (brokenFor_ != width)
        breakLines(width, maximumLines_);
    return paragraphs_;
}

double WrappedText::unlimitedHeightFor(double width) {
    if (maximumLines_ == 0)
        return extentFor(width).height;
    const auto extent = extentFor(width);
    if (!extent.isCut)
        return extent.height;
    const auto height = breakLines(width, 0).height;
    brokenFor_ = -1;
    return height;
}

WrappedText::Extent WrappedText::breakLines(double width, int maximumLines) {
    Extent extent;
    extent.width = width;
    for (auto &[paragraph, isShaped] : paragraphs_) {
        paragraph->clearLayout();
        if (maximumLines > 0 && extent.lines >= maximumLines) {
            extent.isCut = true;
            continue;
        }
        // Begun once and never ended: each beginning throws away the shapes of the letters, which are most of
        // the work, and the same for every width.
        if (!std::exchange(isShaped, true))
            paragraph->beginLayout();
        int linesHere = 0;
        for (;;) {
            auto line = paragraph->createLine();
            if (!line.isValid())
                break;
            line.setLineWidth(width);
            // By the baseline: a line in another script comes from a font of another height.
            line.setPosition(QPointF(0, extent.lines * lineHeight_ + baseline_ - line.ascent()));
            extent.naturalWidth = std::max(extent.naturalWidth, line.naturalTextWidth());
            ++extent.lines;
            ++linesHere;
            if (maximumLines > 0 && extent.lines == maximumLines) {
                extent.isCut = line.textStart() + line.textLength() < paragraph->text().size();
                break;
            }
        }
        extent.isWrapped = extent.isWrapped || linesHere > 1;
    }
    extent.isWrapped = extent.isWrapped || extent.isCut;
    extent.isCut = extent.isCut || isShortened_;
    extent.height = extent.lines * lineHeight_;
    brokenFor_ = width;
    return extent;
}
