#pragma once

#include <string>
#include <string_view>

/// Bytes that hold zeros.
template <std::size_t size>
std::string bytes(const char (&literal)[size]) {
    return std::string(literal, size - 1);
}

inline std::string repeated(std::string_view text, std::size_t count) {
    std::string result;
    result.reserve(text.size() * count);
    for (; count > 0; --count)
        result += text;
    return result;
}

inline std::string utf16BigEndian(std::u16string_view text) {
    std::string result;
    for (const char16_t unit : text) {
        result += static_cast<char>(unit >> 8);
        result += static_cast<char>(unit & 0xff);
    }
    return result;
}

inline std::string utf16LittleEndian(std::u16string_view text) {
    auto result = utf16BigEndian(text);
    for (std::size_t index = 0; index < result.size(); index += 2)
        std::swap(result[index], result[index + 1]);
    return result;
}
