#include "Support/LogFile.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <fstream>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

class LogFileTest : public testing::Test {
protected:
    std::string path(const QString &name = QStringLiteral("agent.log")) const {
        return QFile::encodeName(folder_.filePath(name)).toStdString();
    }
    static QByteArray contents(const std::string &path) {
        QFile file(QString::fromStdString(path));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    QTemporaryDir folder_;
};

TEST_F(LogFileTest, AFileThatWasRemovedIsMadeAnew) {
    LogFile file(path(), 1000);
    file.append("one\n");
    ASSERT_EQ(::unlink(path().c_str()), 0);
    file.append("two\n");
    EXPECT_EQ(contents(path()), "two\n");
}

TEST_F(LogFileTest, AFolderThatWasRemovedIsMadeAnew) {
    const auto deep = path(QStringLiteral("a/b/agent.log"));
    LogFile file(deep, 1000);
    file.append("one\n");
    ASSERT_TRUE(QDir(folder_.filePath(QStringLiteral("a"))).removeRecursively());
    file.append("two\n");
    EXPECT_EQ(contents(deep), "two\n");
}

TEST_F(LogFileTest, AFifoPutInItsPlaceHoldsNothingUpAndIsLeftAlone) {
    LogFile file(path(), 1000);
    ASSERT_EQ(::unlink(path().c_str()), 0);
    ASSERT_EQ(::mkfifo(path().c_str(), 0600), 0);
    file.append("lost\n");
    EXPECT_FALSE(file.isOpen());
    ASSERT_EQ(::unlink(path().c_str()), 0);
    file.append("found\n");
    EXPECT_EQ(contents(path()), "found\n");
}

TEST_F(LogFileTest, WhereTheOldFileCannotBeNamedTheFileIsEmptied) {
    ASSERT_TRUE(QDir(folder_.path()).mkpath(QStringLiteral("agent.1.log/full")));
    LogFile file(path(), 10);
    file.append("12345678\n");
    file.append("next\n");
    EXPECT_EQ(contents(path()), "next\n");
}

TEST_F(LogFileTest, ARecordThatWasCutByAFullDiskEndsItsLine) {
    GTEST_FLAG_SET(death_test_style, "fast");
    EXPECT_EXIT(
        {
            std::signal(SIGXFSZ, SIG_IGN);
            LogFile file(path(), 1000);
            rlimit limit {};
            ::getrlimit(RLIMIT_FSIZE, &limit);
            auto little = limit;
            little.rlim_cur = 4;
            ::setrlimit(RLIMIT_FSIZE, &little);
            file.append("12345678\n");
            ::setrlimit(RLIMIT_FSIZE, &limit);
            file.append("next\n");
            std::_Exit(0);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EQ(contents(path()), "1234\nnext\n");
}

TEST_F(LogFileTest, NobodyElseMayReadOrWriteTheFileWhateverTheMask) {
    const auto mask = ::umask(0);
    const LogFile file(path(QStringLiteral("a/agent.log")), 1000);
    ::umask(mask);
    struct stat status { };
    ASSERT_EQ(::stat(path(QStringLiteral("a")).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0755U);
    ASSERT_EQ(::stat(path(QStringLiteral("a/agent.log")).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST_F(LogFileTest, ALinkToAnotherFileIsNotFollowed) {
    const auto target = path(QStringLiteral("target"));
    std::ofstream(target) << "mine\n";
    for (const auto link : { &::symlink, &::link }) {
        ASSERT_EQ(link(target.c_str(), path().c_str()), 0);
        LogFile file(path(), 1000);
        EXPECT_FALSE(file.isOpen());
        file.append("lost\n");
        EXPECT_EQ(contents(target), "mine\n");
        ASSERT_EQ(::unlink(path().c_str()), 0);
        file.append("found\n");
        EXPECT_EQ(contents(path()), "found\n");
        ASSERT_EQ(::unlink(path().c_str()), 0);
    }
}

TEST_F(LogFileTest, AFolderThatIsALinkIsFollowed) {
    const auto elsewhere = path(QStringLiteral("elsewhere"));
    ASSERT_TRUE(QDir(folder_.path()).mkdir(QStringLiteral("elsewhere")));
    ASSERT_EQ(::symlink(elsewhere.c_str(), path(QStringLiteral("folder")).c_str()), 0);
    LogFile(path(QStringLiteral("folder/agent.log")), 1000).append("found\n");
    EXPECT_EQ(contents(elsewhere + "/agent.log"), "found\n");
}

TEST_F(LogFileTest, AFileOfAnotherUsersIsNotWrittenTo) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root can make a file of somebody else's";
    std::ofstream(path()) << "theirs\n";
    ASSERT_EQ(::chmod(path().c_str(), 0666), 0);
    ASSERT_EQ(::chown(path().c_str(), 65534, 65534), 0);
    LogFile file(path(), 1000);
    EXPECT_FALSE(file.isOpen());
    file.append("lost\n");
    EXPECT_EQ(contents(path()), "theirs\n");
}

} // namespace
