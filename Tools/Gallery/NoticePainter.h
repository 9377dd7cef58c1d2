#pragma once

#include "Tools/Gallery/Catalogue.h"

#include <QImage>
#include <QTemporaryDir>

class Bundle;

/// Shows a picture's message the way the agent does, in a window of its own, and takes its image one second
/// later. Needs a QApplication; one painter a process.
class NoticePainter {
public:
    /// @param bundle  outlives the painter
    explicit NoticePainter(const Bundle &bundle);

    QImage paint(const Picture &picture);

private:
    const Bundle &bundle_;
    QTemporaryDir folder_;
};
