#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// The file that the log is written to: appended to, begun anew past its size with one old file kept, and
/// made anew when somebody takes it away or puts another in its place. Nothing that happens to it, a full
/// disk among it, does more than lose records. One thread at a time.
///
/// Only a regular file with one name, the user's or root's, is written to; a link in its place is not
/// followed. Folders may be links. A file that is made can be read and written by the user alone.
class LogFile {
public:
    /// Opens the file, and makes it and its folders where the rights allow it.
    /// @param largest  bytes; only a record that is longer by itself makes the file longer
    LogFile(std::string path, std::int64_t largest);
    ~LogFile();
    LogFile(const LogFile &) = delete;
    LogFile &operator=(const LogFile &) = delete;

    bool isOpen() const { return descriptor_ >= 0; }

    /// Writes a record, which ends with a line feed; it has left the process when this returns.
    void append(std::string_view record);

private:
    bool open();
    void close();
    std::int64_t sizeIfStillThere() const;
    void beginAnew();
    bool write(std::string_view text);

    std::string path_;
    std::int64_t largest_;
    int descriptor_ = -1;
    bool isInsideLine_ = false; ///< a full disk cut the latest record
};
