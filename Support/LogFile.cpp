#include "Support/LogFile.h"

#include <cerrno>
#include <filesystem>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Whatever the user's mask says: messages are in the log, and the folder may be every user's.
constexpr mode_t folderMode = 0755;
constexpr mode_t fileMode = 0600;

void makeFolders(const std::filesystem::path &folder) {
    if (folder.empty() || ::mkdir(folder.c_str(), folderMode) == 0 || errno != ENOENT)
        return;
    makeFolders(folder.parent_path());
    ::mkdir(folder.c_str(), folderMode);
}

// Who else can write to the folder must neither choose which of the user's files is appended to, by another
// name for it, nor have the log in a file of their own.
bool isTrusted(const struct stat &file) {
    return S_ISREG(file.st_mode) && file.st_nlink == 1 && (file.st_uid == ::geteuid() || file.st_uid == 0);
}

std::string oldPath(const std::filesystem::path &path) {
    auto name = path.stem();
    name += ".1";
    name += path.extension();
    return (path.parent_path() / name).string();
}

} // namespace

LogFile::LogFile(std::string path, std::int64_t largest)
    : path_(std::move(path))
    , largest_(largest) {
    open();
}

LogFile::~LogFile() {
    close();
}

bool LogFile::open() {
    makeFolders(std::filesystem::path(path_).parent_path());
    // Not blocking, since a FIFO in the file's place would hold the agent up. What was opened is looked at,
    // and not what stands there before or after.
    constexpr int flags = O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    descriptor_ = ::open(path_.c_str(), flags, fileMode);
    struct stat status { };
    if (descriptor_ < 0)
        return false;
    if (::fstat(descriptor_, &status) != 0 || !isTrusted(status)) {
        close();
        return false;
    }
    return true;
}

void LogFile::close() {
    if (descriptor_ >= 0)
        ::close(std::exchange(descriptor_, -1));
}

/// Negative when the path leads to another file, or to none.
std::int64_t LogFile::sizeIfStillThere() const {
    struct stat opened { };
    struct stat there { };
    const bool isThere = isOpen() && ::fstat(descriptor_, &opened) == 0 && ::lstat(path_.c_str(), &there) == 0
        && opened.st_dev == there.st_dev && opened.st_ino == there.st_ino;
    return isThere ? opened.st_size : -1;
}

void LogFile::beginAnew() {
    if (::rename(path_.c_str(), oldPath(path_).c_str()) != 0) {
        // Rather the old records than a file without an end.
        [[maybe_unused]] const int result = ::ftruncate(descriptor_, 0);
        return;
    }
    close();
    open();
}

void LogFile::append(std::string_view record) {
    auto size = sizeIfStillThere();
    if (size < 0) {
        close();
        if (!open())
            return;
        size = sizeIfStillThere();
    }
    if (size > 0 && size + static_cast<std::int64_t>(record.size()) > largest_)
        beginAnew();
    if (!isOpen() || (isInsideLine_ && !write("\n")))
        return;
    write(record);
}

bool LogFile::write(std::string_view text) {
    const auto whole = text.size();
    while (!text.empty()) {
        const auto written = ::write(descriptor_, text.data(), text.size());
        if (written > 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            isInsideLine_ = isInsideLine_ || text.size() != whole;
            return false;
        }
    }
    isInsideLine_ = false;
    return true;
}
