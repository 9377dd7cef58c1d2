#include "Formats/Text.h"

#include <cstddef>

namespace {

constexpr char32_t replacement = 0xfffd;

constexpr bool isHighSurrogate(char32_t unit) {
    return unit >= 0xd800 && unit < 0xdc00;
}

constexpr bool isLowSurrogate(char32_t unit) {
    return unit >= 0xdc00 && unit < 0xe000;
}

/// How many bytes the character at the beginning takes; 0 when it is not UTF-8.
std::size_t characterLength(std::string_view bytes) {
    const auto at = [bytes](std::size_t index) { return static_cast<unsigned char>(bytes[index]); };
    const auto first = at(0);
    if (first < 0x80)
        return 1;
    const std::size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    if (first < 0xc2 || first > 0xf4 || bytes.size() < length)
        return 0;
    for (std::size_t index = 1; index < length; ++index) {
        if ((at(index) & 0xc0) != 0x80)
            return 0;
    }
    const auto second = at(1);
    const bool isTooLong = (first == 0xe0 && second < 0xa0) || (first == 0xf0 && second < 0x90);
    const bool isSurrogate = first == 0xed && second >= 0xa0;
    const bool isTooLarge = first == 0xf4 && second >= 0x90;
    return isTooLong || isSurrogate || isTooLarge ? 0 : length;
}

} // namespace

bool Formats::isUtf8(std::string_view bytes) {
    while (!bytes.empty()) {
        const auto length = characterLength(bytes);
        if (length == 0)
            return false;
        bytes.remove_prefix(length);
    }
    return true;
}

void Formats::appendUtf8(std::string &text, char32_t character) {
    const auto append = [&text](char32_t byte) { text += static_cast<char>(byte); };
    const auto appendLast = [&append](char32_t bits) { append(0x80 | (bits & 0x3f)); };
    if (isHighSurrogate(character) || isLowSurrogate(character))
        character = replacement;
    if (character < 0x80)
        return append(character);
    if (character < 0x800) {
        append(0xc0 | character >> 6);
    } else if (character < 0x10000) {
        append(0xe0 | character >> 12);
        appendLast(character >> 6);
    } else {
        append(0xf0 | character >> 18);
        appendLast(character >> 12);
        appendLast(character >> 6);
    }
    appendLast(character);
}

std::optional<std::string> Formats::textFromUtf16(std::string_view bytes, ByteOrder order) {
    if (bytes.size() % 2 != 0)
        return std::nullopt;
    const auto unitAt = [bytes, order](std::size_t index) -> char32_t {
        const char32_t first = static_cast<unsigned char>(bytes[index]);
        const char32_t second = static_cast<unsigned char>(bytes[index + 1]);
        return order == ByteOrder::BigEndian ? first << 8 | second : second << 8 | first;
    };
    std::string text;
    text.reserve(bytes.size() / 2);
    for (std::size_t index = 0; index < bytes.size(); index += 2) {
        auto character = unitAt(index);
        if (isHighSurrogate(character) && index + 2 < bytes.size() && isLowSurrogate(unitAt(index + 2))) {
            index += 2;
            character = 0x10000 + ((character - 0xd800) << 10) + (unitAt(index) - 0xdc00);
        } else if (isHighSurrogate(character) || isLowSurrogate(character)) {
            return std::nullopt;
        }
        appendUtf8(text, character);
    }
    return text;
}

std::optional<std::string> Formats::textFromFile(std::string_view bytes) {
    if (bytes.starts_with("\xff\xfe"))
        return textFromUtf16(bytes.substr(2), ByteOrder::LittleEndian);
    if (bytes.starts_with("\xfe\xff"))
        return textFromUtf16(bytes.substr(2), ByteOrder::BigEndian);
    if (bytes.starts_with("\xef\xbb\xbf"))
        bytes.remove_prefix(3);
    return isUtf8(bytes) ? std::optional(std::string(bytes)) : std::nullopt;
}
