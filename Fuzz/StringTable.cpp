// A language's string table, in each of its forms.

#include "Formats/StringTable.h"
#include "Formats/Text.h"
#include "Fuzz/Check.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const auto table = Formats::parseStringTable({ reinterpret_cast<const char *>(data), size });
    if (!table)
        return 0;
    for (const auto &[key, value] : *table)
        check(Formats::isUtf8(key) && Formats::isUtf8(value));
    return 0;
}
