#pragma once

#include "Client/NoticeClient.h"

#include <string>

/// Reads a property list, XML or binary, whose root is a dictionary. Every failure names the option and the
/// file.
NoticeClient::Dictionary readPropertyList(const std::string &option, const std::string &path);
