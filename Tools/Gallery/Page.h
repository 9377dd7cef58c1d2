#pragma once

#include "Tools/Gallery/Catalogue.h"

#include <QByteArray>

/// The page that shows the pictures side by side, each with its name, as HTML.
QByteArray galleryPage(const std::vector<Picture> &pictures);
