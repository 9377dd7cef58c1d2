#pragma once

#include <QString>

/// Stops the process at a programming error that cannot be worked round (an outlet that no form connects, an
/// unknown scene): writes the one line to standard error and aborts.
[[noreturn]] void fatalStop(const QString &line);
