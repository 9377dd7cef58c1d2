#include "Formats/File.h"

#include "Tests/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include <sys/stat.h>

namespace {

using std::filesystem::path;

class FileTest : public testing::Test {
protected:
    void write(const path &file, const std::string &bytes) const {
        std::ofstream(file, std::ios::binary) << bytes;
    }
    void expectNothing() const { EXPECT_EQ(Formats::readFile(file()), std::nullopt); }
    path file() const { return folder_ / "file"; }

    const TemporaryFolder temporary_;
    const path &folder_ = temporary_.path();
};

TEST_F(FileTest, IsReadWhole) {
    const std::string bytes("a\0\xff\n", 4);
    write(file(), bytes);
    EXPECT_EQ(Formats::readFile(file()), bytes);
}

TEST_F(FileTest, BehindALinkIsRead) {
    write(folder_ / "target", "bytes");
    std::filesystem::create_symlink("target", file());
    EXPECT_EQ(Formats::readFile(file()), "bytes");
}

TEST_F(FileTest, EmptyHasNoBytes) {
    write(file(), "");
    EXPECT_EQ(Formats::readFile(file()), "");
}

TEST_F(FileTest, MissingIsNothing) {
    expectNothing();
    EXPECT_EQ(Formats::readFile(""), std::nullopt);
}

TEST_F(FileTest, AFolderIsNothing) {
    std::filesystem::create_directory(file());
    expectNothing();
}

TEST_F(FileTest, AFifoIsNothingAndDoesNotBlock) {
    ASSERT_EQ(::mkfifo(file().c_str(), 0600), 0);
    expectNothing();
}

TEST_F(FileTest, ADeviceIsNothing) {
    std::filesystem::create_symlink("/dev/zero", file());
    expectNothing();
}

TEST_F(FileTest, ALinkToItselfIsNothing) {
    std::filesystem::create_symlink("file", file());
    expectNothing();
}

TEST_F(FileTest, TheLargestIsReadAndALargerOneIsNot) {
    write(file(), "");
    std::filesystem::resize_file(file(), Formats::maxFileSize); // without any block on the disk
    const auto bytes = Formats::readFile(file());
    ASSERT_TRUE(bytes);
    EXPECT_EQ(bytes->size(), Formats::maxFileSize);
    for (const std::uintmax_t size :
        { std::uintmax_t { Formats::maxFileSize } + 1, std::uintmax_t { 1 } << 40 }) {
        std::filesystem::resize_file(file(), size);
        expectNothing();
    }
}

} // namespace
