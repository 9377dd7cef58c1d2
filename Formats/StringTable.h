#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace Formats {

/// A string table of a language folder: texts by key, UTF-8.
using StringTable = std::map<std::string, std::string, std::less<>>;

/// Reads the text form `"key" = "value";` (UTF-8, or UTF-16 with a byte order mark) and property lists, of
/// which entries of other kinds are left out. Of a key that stands twice the last value counts. Any thread.
/// @return nothing when the table is broken anywhere
std::optional<StringTable> parseStringTable(std::string_view bytes);

} // namespace Formats
