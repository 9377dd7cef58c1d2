#include "Tools/PostNotice/InputFile.h"

#include "Formats/PropertyList.h"
#include "Tools/PostNotice/Failure.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <optional>
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

/// Nothing for a kind that the agent does not read.
std::optional<NoticeClient::Value> valueOf(const Formats::PropertyValue &value) {
    if (const auto *flag = std::get_if<bool>(&value))
        return *flag;
    if (const auto *text = std::get_if<std::string>(&value))
        return *text;
    if (const auto *data = std::get_if<Formats::Data>(&value))
        return NoticeClient::Data { data->bytes };
    return std::nullopt;
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

NoticeClient::Message InputFile::readPropertyList(const std::string &option, const std::string &path) {
    const auto list = Formats::parsePropertyList(read(option, path));
    if (!list)
        fail(option, path, "not a property list whose root is a dictionary");
    NoticeClient::Message result;
    for (const auto &[key, content] : *list) {
        auto value = valueOf(content);
        const auto *text = value ? std::get_if<std::string>(&*value) : nullptr;
        if (!NoticeClient::isText(key) || (text && !NoticeClient::isText(*text)))
            fail(option, path, key.c_str() + std::string(": a zero byte in a text"));
        if (value)
            result.emplace(key, std::move(*value));
    }
    return result;
}
