#pragma once

#include "Tools/PostNotice/Value.h"

#include <string>

/// Reads a property list, XML or binary, whose root is a dictionary. Every failure names the option and the
/// file.
Dictionary readPropertyList(const std::string &option, const std::string &path);
