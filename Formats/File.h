#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace Formats {

/// Larger files are not read.
inline constexpr std::size_t maxFileSize = 16 * 1024 * 1024; // bytes

/// The bytes of a regular file. Nothing when it is missing, is of another kind or is larger than
/// `maxFileSize`; a FIFO or a device in its place does not block. Any thread.
std::optional<std::string> readFile(const std::string &path);

} // namespace Formats
