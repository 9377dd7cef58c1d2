#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace Formats {

/// Binary data of a property list: any bytes.
struct Data {
    std::string bytes;
    bool operator==(const Data &) const = default;
};

/// A value of a dictionary. Texts are UTF-8 and may hold a zero byte. `std::monostate` stands for every other
/// kind: real, date, array, dictionary, an integer beyond the range.
using PropertyValue = std::variant<std::monostate, bool, std::int64_t, std::string, Data>;

/// The dictionary that is a property list's root.
using PropertyList = std::map<std::string, PropertyValue, std::less<>>;

/// Reads the XML and the binary form. XML may be UTF-8 or UTF-16 (with or without a byte order mark),
/// ISO-8859-1 or US-ASCII, as its declaration says; a mark overrules the declaration. Of a key that stands
/// twice the last value counts. Any thread.
/// @return nothing when the bytes are no property list, its root is no dictionary, or an `<integer>` is
///         anything but an optional sign and decimal or 0x digits within 64 bits
std::optional<PropertyList> parsePropertyList(std::string_view bytes);

/// The string of that key; nothing when it is missing or of another kind.
std::optional<std::string> stringOf(const PropertyList &list, std::string_view key);

} // namespace Formats
