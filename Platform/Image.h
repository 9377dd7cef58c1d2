#pragma once

#include <QByteArray>
#include <QImage>
#include <QSize>
#include <QString>

#include <optional>
#include <vector>

class Bundle;

/// A picture: bytes of one of the formats that are shipped (PNG, JPEG, GIF, SVG, ICO, BMP), or the several
/// sizes of one picture. It is decoded when it is drawn, for the size and the scale that are asked for.
/// Nothing that a picture refers to is ever fetched.
class Image {
public:
    /// The application's image of that name: `name.png`, `name@2x.png`, `name@3x.png`, `name.jpg` and
    /// `name.svg` among the bundle's resources. A name with one of these endings stands for files of that
    /// kind alone. Nothing when there is none.
    static std::optional<Image> named(const Bundle &bundle, const QString &name);

    /// An image from outside. Nothing when the bytes are no image of a known format, or are one that could
    /// take more than a second to draw or ask for anything outside itself. The bytes are not kept, but for
    /// those of a drawing.
    static std::optional<Image> withData(const QByteArray &bytes);

    /// In pixels at scale 1.
    QSize size() const { return size_; }

    /// Draws the picture at its own proportions into a box.
    /// @param box    in pixels at scale 1
    /// @param scale  device pixels a pixel; the result carries it as its device pixel ratio
    /// @return null for a drawing that takes longer than 0.4 s
    QImage scaledToFit(const QSize &box, double scale) const;

private:
    struct Representation {
        QByteArray bytes {};
        QByteArray format {};
        QSize pixels {}; ///< empty for a drawing whose size nobody needed
        bool isVector = false;
        QImage kept {}; ///< in place of the bytes

        QImage picture() const;
    };

    // A drawing beside pictures of known size is not opened until it is drawn: that loads a plug-in.
    static std::optional<Representation> representation(const QByteArray &bytes, bool sizeIsKnown);

    std::vector<Representation> representations_; ///< the smallest first
    QSize size_;
};
