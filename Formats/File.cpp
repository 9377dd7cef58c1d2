#include "Formats/File.h"

#include <cstdio>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>

namespace {

struct CloseFile {
    void operator()(std::FILE *file) const { std::fclose(file); }
};

} // namespace

std::optional<std::string> Formats::readFile(const std::string &path) {
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    const std::unique_ptr<std::FILE, CloseFile> file(descriptor < 0 ? nullptr : ::fdopen(descriptor, "rb"));
    struct stat status { };
    if (!file || ::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)
        || status.st_size > static_cast<off_t>(maxFileSize))
        return std::nullopt;
    std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), file.get()));
    return std::ferror(file.get()) ? std::nullopt : std::optional(std::move(bytes));
}
