#pragma once

#include <QByteArray>
#include <QColor>
#include <QString>

/// A brand to show the notices in: the bundle's own, or settings and a word for a logo in their place.
struct Brand {
    QString name;
    bool isOfBundle = true;
    QString vendor;
    QColor header;
    QColor logo;
};

/// Makes the folder `Contents` of a branded bundle: links to what the bundle has, and the brand's settings
/// and logo.
/// @param contents  of the bundle
/// @param branded   the new folder
void makeBrandedContents(const QString &contents, const Brand &brand, const QString &branded);

/// A word as a logo, 32 pixels high at scale 1, as PNG.
QByteArray wordLogo(const QString &word, const QColor &color, int scale);

/// A plain picture of that size, as PNG: what an integrator may send for a logo.
QByteArray plainLogo(int width, int height);
