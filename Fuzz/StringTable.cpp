// A language's string table, in each of its forms.

#include "Platform/StringTable.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static_cast<void>(
        StringTable::parse(QByteArray(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size))));
    return 0;
}
