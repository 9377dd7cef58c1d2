#include "Tools/PostNotice/RealNumber.h"

#include <cmath>
#include <cstdlib>
#include <string_view>

namespace {

std::size_t takeDigits(std::string_view &text) {
    const auto end = text.find_first_not_of("0123456789");
    const auto count = end == std::string_view::npos ? text.size() : end;
    text.remove_prefix(count);
    return count;
}

bool take(std::string_view &text, std::string_view oneOf) {
    const bool isThere = !text.empty() && oneOf.find(text.front()) != std::string_view::npos;
    text.remove_prefix(isThere ? 1 : 0);
    return isThere;
}

bool isRealNumber(std::string_view text) {
    take(text, "-");
    auto digits = takeDigits(text);
    if (take(text, "."))
        digits += takeDigits(text);
    if (digits == 0)
        return false;
    if (!take(text, "eE"))
        return text.empty();
    take(text, "+-");
    return takeDigits(text) > 0 && text.empty();
}

} // namespace

// The standard library's own conversion, which knows no locale, is not there for real numbers everywhere.
// This command sets no locale, so that the point is a point.
std::optional<double> realNumber(const std::string &text) {
    if (!isRealNumber(text))
        return std::nullopt;
    const double number = std::strtod(text.c_str(), nullptr);
    return std::isfinite(number) ? std::optional(number) : std::nullopt;
}
