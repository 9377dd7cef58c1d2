#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

/// A folder that goes with this. Without the toolkit.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string name = std::filesystem::temp_directory_path() / "notice-test-XXXXXX";
        if (!::mkdtemp(name.data()))
            throw std::runtime_error(name);
        path_ = name;
    }
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    const std::filesystem::path &path() const { return path_; }

private:
    std::filesystem::path path_;
};
