#include "Tools/PostNotice/InputFile.h"

#include "Client/NoticeClient.h"
#include "Tools/PostNotice/Failure.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <string_view>
#include <system_error>

namespace {

struct CloseFile {
    void operator()(std::FILE *file) const { std::fclose(file); }
};

[[noreturn]] void fail(const std::string &option, const std::string &path, const std::string &what) {
    throw Failure(option + ": " + path + ": " + what);
}

std::string reason(int error) {
    return std::generic_category().message(error);
}

// What the agent takes for a picture.
bool isImage(std::string_view bytes) {
    using namespace std::string_view_literals;
    constexpr std::array beginnings { "\x89PNG\r\n\x1a\n"sv, "\xff\xd8\xff"sv, "GIF87a"sv, "GIF89a"sv,
        "\0\0\1\0"sv, "BM"sv };
    return bytes.find("<svg") != std::string_view::npos
        || std::any_of(beginnings.begin(), beginnings.end(),
            [bytes](std::string_view beginning) { return bytes.starts_with(beginning); });
}

} // namespace

std::string InputFile::read(const std::string &option, const std::string &path) {
    const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path.c_str(), "rbe"));
    if (!file)
        fail(option, path, reason(errno));
    std::string bytes;
    std::array<char, 65536> block {};
    while (const auto count = std::fread(block.data(), 1, block.size(), file.get())) {
        bytes.append(block.data(), count);
        if (bytes.size() > NoticeClient::maxBytes)
            fail(option, path, "larger than the bus allows in one message");
    }
    if (std::ferror(file.get()))
        fail(option, path, reason(errno));
    return bytes;
}

std::string InputFile::readText(const std::string &option, const std::string &path) {
    auto bytes = read(option, path);
    if (!NoticeClient::isText(bytes))
        fail(option, path, "not UTF-8 text");
    return bytes;
}

std::string InputFile::readImage(const std::string &option, const std::string &path) {
    auto bytes = read(option, path);
    if (!isImage(bytes))
        fail(option, path, "not a PNG, JPEG, GIF, ICO, BMP or SVG image");
    return bytes;
}
