#include "Platform/LibraryFile.h"

#include <QFileInfo>

bool LibraryFile::isWhole(const QString &path) {
    // The system's loader looks at a file's length itself, and refuses one that was cut off.
    return QFileInfo(path).size() > 0;
}
