#pragma once

#include <optional>
#include <string>

/// The number that the text is: an optional minus sign, digits with an optional point among or beside them,
/// an optional exponent, and nothing else. Nothing when it is none, or past what a number holds.
std::optional<double> realNumber(const std::string &text);
