// A property list in each of its forms.

#include "Formats/PropertyList.h"
#include "Formats/Text.h"
#include "Fuzz/Check.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const auto list = Formats::parsePropertyList({ reinterpret_cast<const char *>(data), size });
    if (!list)
        return 0;
    for (const auto &[key, value] : *list) {
        check(Formats::isUtf8(key));
        const auto *text = std::get_if<std::string>(&value);
        check(!text || Formats::isUtf8(*text));
    }
    return 0;
}
