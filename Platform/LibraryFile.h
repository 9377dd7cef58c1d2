#pragma once

class QString;

/// What is asked of a library's file before it is loaded; one file a system, chosen by the build.
namespace LibraryFile {

/// Whether the file is a library for this process, and as long as its own headers say. The system's loader
/// maps a file that was cut off without a word, and the process ends at the first use of what is missing.
/// True tells nothing about what the file holds.
bool isWhole(const QString &path);

} // namespace LibraryFile
