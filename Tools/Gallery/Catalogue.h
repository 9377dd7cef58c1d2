#pragma once

#include "Tools/Gallery/Brand.h"

#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <functional>
#include <vector>

/// One picture of the gallery: a message, shown in a brand at a scale, on a desktop with a text size.
struct Picture {
    QString section; ///< also its folder
    QString group; ///< the pictures that stand side by side
    QString name;
    Brand brand;
    int scale = 1;
    QVariantMap message;
    double textPoints = 10;

    /// Relative to the gallery's folder.
    QString path() const { return section + u'/' + group + u'-' + name + QStringLiteral(".png"); }
};

/// All pictures, in the order of the page. A group's pictures follow each other.
/// @param languages  the codes of the bundle's languages
/// @param translated  a text of the forms in a language
std::vector<Picture> catalogue(const QStringList &languages,
    const std::function<QString(const QString &language, const QString &text)> &translated);
