#pragma once

#include <QString>

/// Standard output and error of a program that others start: closed, or a pipe that nobody reads. Writing
/// never waits and never ends the process.
namespace StandardStreams {

/// Called first in the process.
void protect();

/// Writes a line to standard output, or drops it when it would have to wait.
void printLine(const QString &line);

/// The same on standard error.
void printErrorLine(const QString &line);

} // namespace StandardStreams
