#include "Platform/FatalStop.h"

#include <cstdio>
#include <cstdlib>

void fatalStop(const QString &line) {
    std::fprintf(stderr, "NoticeAgent: fatal: %s\n", line.toUtf8().constData());
    std::fflush(stderr);
    std::abort();
}
