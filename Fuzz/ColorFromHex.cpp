// The header colour of the settings.

#include "Support/ColorFromHex.h"
#include "Fuzz/Check.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const auto color
        = colorFromHex(QString::fromUtf8(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size)));
    check(color.isValid() && color.alpha() == 255);
    return 0;
}
