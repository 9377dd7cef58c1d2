#include "Platform/ExecutablePath.h"

#include <QFile>
#include <QFileInfo>

#include <array>
#include <cstdint>

#include <mach-o/dyld.h>

QString executablePath() {
    std::array<char, 4096> path {};
    auto size = static_cast<std::uint32_t>(path.size());
    if (_NSGetExecutablePath(path.data(), &size) != 0)
        return {};
    return QFileInfo(QFile::decodeName(path.data())).canonicalFilePath();
}
