#pragma once

#include <optional>
#include <string>
#include <string_view>

/// UTF-8, the form of every text here. Any thread.
namespace Formats {

bool isUtf8(std::string_view bytes);

/// @param character  a surrogate becomes U+FFFD
void appendUtf8(std::string &text, char32_t character);

enum class ByteOrder { LittleEndian, BigEndian };

/// Nothing when a surrogate has no partner or a byte is left over.
std::optional<std::string> textFromUtf16(std::string_view bytes, ByteOrder order);

/// The text of a file: UTF-8, with or without a byte order mark, or UTF-16 with one. Nothing for anything
/// else. The mark is not part of the text.
std::optional<std::string> textFromFile(std::string_view bytes);

} // namespace Formats
