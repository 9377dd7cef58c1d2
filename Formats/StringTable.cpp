#include "Formats/StringTable.h"

#include "Formats/BinaryPropertyList.h"
#include "Formats/PropertyList.h"
#include "Formats/Text.h"

#include <utility>

using namespace Formats;

namespace {

constexpr std::string_view tableBlanks = " \t\r\n\v\f";
constexpr std::string_view bareCharacters
    = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_$/:.-";

/// Reads the text form: entries of two strings, with comments of both kinds of C++ between them.
class TextReader {
public:
    explicit TextReader(std::string_view text)
        : text_(text) { }

    std::optional<StringTable> read() {
        StringTable table;
        while (skipBlanks() && !text_.empty()) {
            auto key = readString();
            if (!key || !skipBlanks())
                return std::nullopt;
            if (take(';')) { // the short form: the key is its own value
                table.insert_or_assign(*key, *key);
                continue;
            }
            if (!take('=') || !skipBlanks())
                return std::nullopt;
            auto value = readString();
            if (!value || !skipBlanks() || !take(';'))
                return std::nullopt;
            table.insert_or_assign(std::move(*key), std::move(*value));
        }
        return text_.empty() ? std::optional(std::move(table)) : std::nullopt;
    }

private:
    bool take(char character) {
        const bool isNext = text_.starts_with(character);
        text_.remove_prefix(isNext);
        return isNext;
    }

    std::string_view takeUntil(std::size_t position) {
        const auto taken = text_.substr(0, position);
        text_.remove_prefix(taken.size());
        return taken;
    }

    // False when a comment has no end.
    bool skipBlanks() {
        for (;;) {
            takeUntil(text_.find_first_not_of(tableBlanks));
            if (text_.starts_with("//")) {
                takeUntil(text_.find_first_of("\r\n"));
            } else if (text_.starts_with("/*")) {
                const auto end = text_.find("*/", 2);
                if (end == std::string_view::npos)
                    return false;
                text_.remove_prefix(end + 2);
            } else {
                return true;
            }
        }
    }

    std::optional<std::string> readString() {
        if (take('"'))
            return readQuoted('"');
        if (take('\''))
            return readQuoted('\'');
        const auto word = takeUntil(text_.find_first_not_of(bareCharacters));
        return word.empty() ? std::nullopt : std::optional(std::string(word));
    }

    std::optional<std::string> readQuoted(char quote) {
        const char ends[] = { quote, '\\', '\0' };
        std::string result;
        while (!text_.empty()) {
            result += takeUntil(text_.find_first_of(ends));
            if (take(quote))
                return result;
            if (!take('\\') || text_.empty())
                return std::nullopt;
            readEscape(result);
        }
        return std::nullopt;
    }

    void readEscape(std::string &result) {
        constexpr std::string_view letters = "abfnrtv";
        constexpr std::string_view characters = "\a\b\f\n\r\t\v";
        const char character = text_.front();
        if (character >= '0' && character <= '7')
            return appendUtf8(result, readDigits(8, 3));
        text_.remove_prefix(1);
        if (character == 'U' || character == 'u')
            return appendUtf8(result, readUtf16());
        const auto letter = letters.find(character);
        result += letter == std::string_view::npos ? character : characters[letter];
    }

    // Two halves of a pair stand in two escapes.
    char32_t readUtf16() {
        const auto first = readDigits(16, 4);
        const bool isPair
            = first >= 0xd800 && first < 0xdc00 && (text_.starts_with("\\U") || text_.starts_with("\\u"));
        if (!isPair)
            return first;
        const auto rest = text_;
        text_.remove_prefix(2);
        const auto second = readDigits(16, 4);
        if (second >= 0xdc00 && second < 0xe000)
            return 0x10000 + ((first - 0xd800) << 10) + (second - 0xdc00);
        text_ = rest;
        return first;
    }

    char32_t readDigits(unsigned base, int max) {
        char32_t value = 0;
        for (int count = 0; count < max && !text_.empty(); ++count) {
            constexpr std::string_view digits = "0123456789abcdef";
            const auto lower
                = text_.front() >= 'A' && text_.front() <= 'F' ? text_.front() - 'A' + 'a' : text_.front();
            const auto digit = digits.find(static_cast<char>(lower));
            if (digit >= base)
                break;
            value = value * base + static_cast<char32_t>(digit);
            text_.remove_prefix(1);
        }
        return value;
    }

    std::string_view text_;
};

StringTable tableFrom(const PropertyList &list) {
    StringTable table;
    for (const auto &[key, value] : list) {
        if (const auto *text = std::get_if<std::string>(&value))
            table.emplace(key, *text);
    }
    return table;
}

bool isPropertyList(std::string_view bytes) {
    // Behind a mark and blanks, each of them perhaps of two bytes.
    constexpr std::string_view before("\xef\xbb\xbf\xfe\xff\0 \t\r\n", 10);
    const auto first = bytes.find_first_not_of(before);
    return isBinaryPropertyList(bytes) || (first != std::string_view::npos && bytes[first] == '<');
}

} // namespace

std::optional<StringTable> Formats::parseStringTable(std::string_view bytes) {
    if (isPropertyList(bytes)) {
        const auto list = parsePropertyList(bytes);
        return list ? std::optional(tableFrom(*list)) : std::nullopt;
    }
    const auto text = textFromFile(bytes);
    return text ? TextReader(*text).read() : std::nullopt;
}
