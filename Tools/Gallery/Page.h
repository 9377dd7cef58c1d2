#pragma once

#include "Tools/Gallery/Catalogue.h"

#include <QByteArray>

/// The page that shows the pictures side by side, each with its name, as HTML.
/// @param title  the bundle's name and version
QByteArray galleryPage(const QString &title, const std::vector<Picture> &pictures);
