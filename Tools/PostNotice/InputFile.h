#pragma once

#include "Client/NoticeClient.h"

#include <string>

/// Files that options name. Every failure names the option and the file.
namespace InputFile {

/// The whole file as it is; a pipe is read to its end.
std::string read(const std::string &option, const std::string &path);

/// The same for a text, which must be UTF-8 without a zero byte.
std::string readText(const std::string &option, const std::string &path);

/// The same for a picture: PNG, JPEG, GIF, ICO, BMP or SVG by its first bytes.
std::string readImage(const std::string &option, const std::string &path);

/// A property list, XML or binary, whose root is a dictionary.
NoticeClient::Message readPropertyList(const std::string &option, const std::string &path);

} // namespace InputFile
