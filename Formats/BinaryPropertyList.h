#pragma once

#include "Formats/PropertyList.h"

namespace Formats {

/// Whether the bytes begin as the binary form of a property list does.
bool isBinaryPropertyList(std::string_view bytes);

/// Nothing when anything is broken that the root dictionary refers to. The content of arrays and dictionaries
/// in it is not looked at.
std::optional<PropertyList> parseBinaryPropertyList(std::string_view bytes);

} // namespace Formats
