#pragma once

#include "Client/NoticeClient.h"

#include <string>

/// The bundle that `--start` names: a folder, or an installed one by the name of its package.
std::string bundleNamed(const std::string &name);

/// The words in that bundle's settings, read as the agent reads them.
NoticeClient::Brand brandOfBundle(const std::string &bundle);
