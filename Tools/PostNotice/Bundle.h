#pragma once

#include <string>

/// The bundle that `--start` names: a folder, or an installed one by the name of its package.
std::string bundleNamed(const std::string &name);
