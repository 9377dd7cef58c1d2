#pragma once

#include "Tools/Gallery/Catalogue.h"

#include <QImage>
#include <QTemporaryDir>

/// Shows a picture's message the way the agent does, in a window of its own, and takes its image one second
/// later. Needs a QApplication; one painter a process.
class NoticePainter {
public:
    /// @param contents  the bundle's folder `Contents`
    explicit NoticePainter(const QString &contents);

    QImage paint(const Picture &picture);

private:
    QString contentsOf(const Brand &brand) const;

    QString contents_;
    QTemporaryDir folder_;
};
