#include "Formats/PropertyList.h"

#include "Formats/BinaryPropertyList.h"
#include "Formats/File.h"
#include "Formats/XmlDocument.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <utility>

using namespace Formats;

namespace {

constexpr std::string_view blanks = " \t\r\n";

/// Nothing when it is no integer of 64 bits.
std::optional<PropertyValue> integerFrom(std::string_view text) {
    const bool isNegative = text.starts_with('-');
    if (isNegative || text.starts_with('+'))
        text.remove_prefix(1);
    int base = 10;
    if (text.starts_with("0x") || text.starts_with("0X")) {
        text.remove_prefix(2);
        base = 16;
    }
    std::uint64_t magnitude = 0;
    const auto *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, magnitude, base);
    constexpr auto max = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    if (error != std::errc() || stop != end || (isNegative && magnitude > max + 1))
        return std::nullopt;
    if (isNegative)
        return static_cast<std::int64_t>(0 - magnitude);
    return magnitude <= max ? PropertyValue(static_cast<std::int64_t>(magnitude)) : PropertyValue();
}

std::optional<unsigned> base64Digit(char character) {
    constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const auto digit = digits.find(character);
    return digit == std::string_view::npos ? std::nullopt : std::optional(static_cast<unsigned>(digit));
}

/// Nothing when it is no base64.
std::optional<PropertyValue> dataFrom(std::string_view text) {
    Data data;
    unsigned bits = 0;
    int bitCount = 0;
    bool isPadded = false;
    for (const char character : text) {
        if (blanks.find(character) != std::string_view::npos)
            continue;
        if (character == '=') {
            isPadded = true;
            continue;
        }
        const auto digit = base64Digit(character);
        if (!digit || isPadded)
            return std::nullopt;
        bits = (bits << 6 | *digit) & 0xffff;
        bitCount += 6;
        if (bitCount >= 8) {
            bitCount -= 8;
            data.bytes += static_cast<char>(bits >> bitCount);
        }
    }
    return data;
}

std::optional<PropertyList> dictionaryFrom(const XmlDocument::Element &element);

bool holdsOnlyElements(const XmlDocument::Element &element) {
    return element.text({}).value_or(std::string()).find_first_not_of(blanks) == std::string::npos;
}

/// Nothing when the element is no value or anything in it is wrong.
std::optional<PropertyValue> valueFrom(const XmlDocument::Element &element) {
    const auto name = element.name();
    const auto children = element.children();
    if (name == "dict")
        return dictionaryFrom(element) ? std::optional(PropertyValue()) : std::nullopt;
    if (name == "array") {
        const bool holdsValues = std::all_of(
            children.begin(), children.end(), [](const auto &each) { return valueFrom(each).has_value(); });
        return holdsValues && holdsOnlyElements(element) ? std::optional(PropertyValue()) : std::nullopt;
    }
    if (!children.empty())
        return std::nullopt;
    auto text = element.text({}).value_or(std::string());
    if (name == "true" || name == "false")
        return holdsOnlyElements(element) ? std::optional<PropertyValue>(name == "true") : std::nullopt;
    if (name == "string")
        return text;
    if (name == "integer")
        return integerFrom(text);
    if (name == "data")
        return dataFrom(text);
    return name == "real" || name == "date" ? std::optional(PropertyValue()) : std::nullopt;
}

std::optional<PropertyList> dictionaryFrom(const XmlDocument::Element &element) {
    const auto children = element.children();
    if (element.name() != "dict" || !holdsOnlyElements(element) || children.size() % 2 != 0)
        return std::nullopt;
    PropertyList list;
    for (std::size_t index = 0; index < children.size(); index += 2) {
        const auto &key = children[index];
        auto value = valueFrom(children[index + 1]);
        if (key.name() != "key" || !key.children().empty() || !value)
            return std::nullopt;
        list.insert_or_assign(key.text({}).value_or(std::string()), std::move(*value));
    }
    return list;
}

// The encoding that a byte order mark names, which overrules the declaration's; null without one.
const char *encodingOf(std::string_view bytes) {
    if (bytes.starts_with("\xff\xfe") || bytes.starts_with("\xfe\xff"))
        return "UTF-16";
    return bytes.starts_with("\xef\xbb\xbf") ? "UTF-8" : nullptr;
}

} // namespace

std::optional<PropertyList> Formats::parsePropertyList(std::string_view bytes) {
    if (bytes.size() > maxFileSize)
        return std::nullopt;
    if (isBinaryPropertyList(bytes))
        return parseBinaryPropertyList(bytes);
    const auto document = XmlDocument::parse(bytes, encodingOf(bytes));
    if (!document)
        return std::nullopt;
    const auto root = document->root().children().front();
    if (root.name() != "plist")
        return dictionaryFrom(root);
    const auto children = root.children();
    return children.size() == 1 && holdsOnlyElements(root) ? dictionaryFrom(children.front()) : std::nullopt;
}

std::optional<std::string> Formats::stringOf(const PropertyList &list, std::string_view key) {
    const auto entry = list.find(key);
    const auto *text = entry == list.end() ? nullptr : std::get_if<std::string>(&entry->second);
    return text ? std::optional(*text) : std::nullopt;
}
