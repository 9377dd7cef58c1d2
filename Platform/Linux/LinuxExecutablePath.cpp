#include "Platform/ExecutablePath.h"

#include <QFile>

QString executablePath() {
    return QFile::symLinkTarget(QStringLiteral("/proc/self/exe"));
}
