#include "Support/Logger.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/ostream_sink.h>
#include <spdlog/spdlog.h>

#include <fstream>
#include <mutex>
#include <new>
#include <sstream>
#include <stdexcept>

#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr LogSource source("Controllers/AppDelegate");

class LoggerTest : public testing::Test {
protected:
    ~LoggerTest() override {
        Logger::resetConfiguration();
        Logger::adopt(Logger::identifier);
    }

    QString path(const QString &name = QStringLiteral("agent.log")) const { return folder_.filePath(name); }

    static void setUp(const QString &file) {
        Logger::resetConfiguration();
        Logger::setUp(file, Logger::identifier);
        Logger::adopt(Logger::identifier);
    }

    static QByteArray contents(const QString &file) {
        QFile reader(file);
        return reader.open(QIODevice::ReadOnly) ? reader.readAll() : QByteArray();
    }
    static QByteArrayList lines(const QString &file) {
        auto all = contents(file).split('\n');
        EXPECT_TRUE(all.last().isEmpty()) << "the last line has no end";
        all.removeLast();
        return all;
    }

    QTemporaryDir folder_;
};

TEST_F(LoggerTest, ALineIsDateLevelInBracketsColonAndMessage) {
    setUp(path());
    source.debug("function()", QStringLiteral("one"));
    source.info("function()", QStringLiteral("two"));
    source.error("function()", QStringLiteral("three"));
    const QRegularExpression date(QStringLiteral("^\\d{4}-\\d{2}-\\d{2} \\d{2}:\\d{2}:\\d{2}\\.\\d{3} "),
        QRegularExpression::MultilineOption);
    EXPECT_EQ(
        QString::fromUtf8(contents(path())).remove(date), "[debug] : one\n[info] : two\n[error] : three\n");
}

TEST_F(LoggerTest, AMessageIsWrittenAsItStands) {
    setUp(path());
    const auto message = QStringLiteral(u"{} {0} %v %n %s \\n é\U0001f512 \n second line");
    source.info("function()", message);
    EXPECT_TRUE(contents(path()).endsWith("[info] : " + message.toUtf8() + '\n'));
}

TEST_F(LoggerTest, ARecordSaysWhereItWasMade) {
    setUp(path());
    std::ostringstream records;
    const auto sink = std::make_shared<spdlog::sinks::ostream_sink_mt>(records);
    sink->set_pattern("%g %! %#");
    Logger::current()->sinks().push_back(sink);
    source.debug("setupUI()", QStringLiteral("debug"));
    EXPECT_EQ(records.str(), "Controllers/AppDelegate setupUI() " + std::to_string(__LINE__ - 1) + '\n');
}

TEST_F(LoggerTest, WhatASinkThrowsComesToNobody) {
    struct ThrowingSink final : spdlog::sinks::base_sink<std::mutex> {
        void sink_it_(const spdlog::details::log_msg & /*message*/) override { throw std::bad_alloc(); }
        void flush_() override { throw std::runtime_error("flush"); }
    };
    setUp(path());
    Logger::current()->sinks().push_back(std::make_shared<ThrowingSink>());
    EXPECT_NO_THROW(source.info("function()", QStringLiteral("message")));
}

TEST_F(LoggerTest, PastOneMebibyteTheFileBeginsAnewAndOneOldFileIsKept) {
    constexpr qint64 mebibyte = 1048576;
    constexpr int records = 3500; // of a good thousand bytes
    setUp(path());
    for (int count = 0; count < records; ++count)
        source.info("function()", QString::number(count) + u' ' + QString(1000, u'x'));

    auto files = QDir(folder_.path()).entryList(QDir::Files);
    ASSERT_EQ(files.size(), 2) << files.join(u' ').toStdString();
    ASSERT_TRUE(files.removeOne(QStringLiteral("agent.log")));
    for (const auto &file : { path(), path(files.front()) }) {
        EXPECT_LE(QFile(file).size(), mebibyte);
        for (const auto &line : lines(file))
            ASSERT_TRUE(line.endsWith(QByteArray(1000, 'x'))) << "a record was cut";
    }
    EXPECT_GT(QFile(path(files.front())).size(), mebibyte - 1100) << "one more record would be too many";
    EXPECT_TRUE(lines(path()).last().contains(" : " + QByteArray::number(records - 1) + ' '));
    EXPECT_TRUE(
        lines(path()).first().contains(" : " + QByteArray::number(records - lines(path()).size()) + ' '))
        << "no record is lost between the files";
}

TEST_F(LoggerTest, AFileThatIsThereIsAppendedTo) {
    setUp(path());
    source.info("function()", QStringLiteral("first run"));
    setUp(path());
    source.info("function()", QStringLiteral("second run"));
    const auto written = lines(path());
    ASSERT_EQ(written.size(), 2);
    EXPECT_TRUE(written[0].endsWith("first run"));
    EXPECT_TRUE(written[1].endsWith("second run"));
}

TEST_F(LoggerTest, IsFoundInTheRegistryByItsIdentifier) {
    EXPECT_STREQ(Logger::identifier, "WebSocketNotificationLog");
    setUp(path());
    EXPECT_EQ(Logger::current(), spdlog::get("WebSocketNotificationLog"));
    EXPECT_EQ(Logger::current()->level(), spdlog::level::debug);
    Logger::adopt("AnotherLog");
    EXPECT_EQ(Logger::current(), nullptr);
}

using UnusableLogFile = LoggerTest;

TEST_F(UnusableLogFile, IsHarmless) {
    const auto folder = path(QStringLiteral("folder"));
    const auto file = path(QStringLiteral("file"));
    const auto device = path(QStringLiteral("device"));
    QDir().mkdir(folder);
    std::ofstream(file.toStdString()).close();
    ASSERT_TRUE(QFile::link(QStringLiteral("/dev/full"), device));
    for (const auto &unusable : { QString(), QStringLiteral("/"), path(QString(5000, u'x')), folder,
             file + QStringLiteral("/agent.log"), device }) {
        SCOPED_TRACE(unusable.left(100).toStdString());
        setUp(unusable);
        EXPECT_NE(Logger::current(), nullptr) << "the logger is there all the same";
        source.info("function()", QString(2'000'000, u'x'));
    }
    EXPECT_TRUE(QDir(folder).exists());
    EXPECT_EQ(QFileInfo(file).size(), 0);
}

TEST_F(UnusableLogFile, AFolderWithoutTheRightsIsHarmless) {
    // As root everything may be written: the test goes on as somebody else, in a process of its own.
    GTEST_FLAG_SET(death_test_style, "fast");
    ASSERT_EQ(::chmod(QFile::encodeName(folder_.path()).constData(), 0555), 0);
    EXPECT_EXIT(
        {
            if (::geteuid() == 0 && ::setresuid(65534, 65534, 65534) != 0)
                std::_Exit(2);
            setUp(path(QStringLiteral("acme/agent.log")));
            source.info("function()", QStringLiteral("message"));
            std::_Exit(Logger::current() ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    ::chmod(QFile::encodeName(folder_.path()).constData(), 0755);
    EXPECT_FALSE(QFileInfo::exists(path(QStringLiteral("acme"))));
}

} // namespace
