#include "Tools/PostNotice/InputFile.h"

#include "Client/NoticeClient.h"
#include "Tools/PostNotice/Failure.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
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

} // namespace

std::string InputFile::read(const std::string &option, const std::string &path) {
    const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path.c_str(), "rbe"));
    if (!file)
        fail(option, path, reason(errno));
    std::string bytes;
    std::array<char, 65536> block {};
    while (const auto count = std::fread(block.data(), 1, block.size(), file.get())) {
        bytes.append(block.data(), count);
        if (bytes.size() > NoticeClient::mostBytes)
            fail(option, path, "more than the bus carries in one message");
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
