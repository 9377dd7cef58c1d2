#pragma once

#include <QFont>
#include <QString>
#include <QTextLayout>

#include <memory>
#include <vector>

/// A plain text in lines. The letters are shaped once; breaking them into lines for another width is cheap,
/// and the extents of the widths asked for last are remembered, since a layout asks for the same few again
/// and again.
class WrappedText {
public:
    struct Extent {
        double width = 0; ///< the lines were broken for this one
        double height = 0;
        int lines = 0;
        bool isCut = false; ///< by the limit of lines
        bool isWrapped = false; ///< whether any line was too long for the width
        double naturalWidth = 0; ///< of the longest line
    };

    /// @param direction     the reader's: where the lines begin, and the way of a text without letters
    /// @param lineHeight    in pixels
    /// @param maximumLines  0 for no limit
    WrappedText(const QString &text, const QFont &font, Qt::LayoutDirection direction, double lineHeight,
        int maximumLines);

    Extent extentFor(double width);

    struct Paragraph {
        std::unique_ptr<QTextLayout> layout;
        bool isShaped = false;
    };

    /// The paragraphs broken into lines and placed for that width, one below the other; those past the limit
    /// of lines have none. Valid until the next call of anything here.
    const std::vector<Paragraph> &linesFor(double width);

    /// The height without the limit of lines.
    double unlimitedHeightFor(double width);

private:
    Extent breakLines(double width, int maximumLines);

    std::vector<Paragraph> paragraphs_;
    std::vector<Extent> known_;
    double lineHeight_;
    double baseline_;
    int maximumLines_;
    bool isShortened_;
    double brokenFor_ = -1;
};
