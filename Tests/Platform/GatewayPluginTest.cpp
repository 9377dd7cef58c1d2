#include "Platform/Qt/GatewayPlugin.h"

#include "ServiceTier/portalGatewayServiceTier.h"
#include "Tests/Platform/PrintQt.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <algorithm>

namespace {

const auto answers = QStringLiteral(STUB_ANSWERS);

class GatewayPluginTest : public testing::Test {
protected:
    void install(const QString &library) const {
        QFile::remove(path_);
        ASSERT_TRUE(QFile::copy(library, path_));
    }
    void writeLibrary(const QByteArray &bytes) const {
        QFile::remove(path_);
        QFile file(path_);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
    }
    static std::optional<int> statusFrom(portalGatewayServiceTier &client) {
        std::optional<int> status;
        client.request("http://localhost", nullptr, "GET",
            [&status](const ServiceTierResponse &response) { status = response.httpStatusCode; });
        return status;
    }

    /// Refused, with one line that says why.
    void expectRefused(const QString &reason) {
        errors_.clear();
        EXPECT_EQ(plugin_.makeClient(), nullptr);
        ASSERT_EQ(errors_.size(), 1);
        EXPECT_EQ(
            errors_.first(), QStringLiteral("The gateway client %1 cannot be used: %2.").arg(path_, reason));
    }

    QTemporaryDir folder_;
    const QString path_ = folder_.filePath(QStringLiteral("libServiceTier.so"));
    QStringList errors_;
    GatewayPlugin plugin_ { path_, [this](const QString &line) { errors_ << line; } };
};

TEST_F(GatewayPluginTest, AMissingLibraryGivesNoClient) {
    expectRefused(QStringLiteral("there is no such file"));
}

TEST_F(GatewayPluginTest, ALibraryGivesAClient) {
    install(answers);
    const auto client = plugin_.makeClient();
    EXPECT_EQ(errors_, QStringList());
    ASSERT_TRUE(client);
    EXPECT_EQ(statusFrom(*client), 204);
}

TEST_F(GatewayPluginTest, EveryRequestGetsAClientOfItsOwn) {
    install(answers);
    const auto first = plugin_.makeClient();
    auto second = plugin_.makeClient();
    ASSERT_TRUE(first);
    ASSERT_TRUE(second);
    EXPECT_NE(first, second);
    second.reset();
    EXPECT_EQ(statusFrom(*first), 204);
}

TEST_F(GatewayPluginTest, ALibraryOfAnotherVersionGivesNoClient) {
    install(QStringLiteral(STUB_WRONG_VERSION));
    expectRefused(QStringLiteral("it is of another version"));
    expectRefused(QStringLiteral("it is of another version"));
}

TEST_F(GatewayPluginTest, ALibraryWithoutTheFunctionsGivesNoClient) {
    install(QStringLiteral(STUB_NO_CREATE));
    expectRefused(QStringLiteral("it lacks the functions"));
}

const auto noLibrary = QStringLiteral("it is no library of this machine's kind, or not all of one");

TEST_F(GatewayPluginTest, WhatIsNoLibraryGivesNoClient) {
    for (const auto &bytes :
        { QByteArray(), QByteArray("no library"), QByteArray("\177ELF"), QByteArray(10'000, '\0') }) {
        writeLibrary(bytes);
        expectRefused(noLibrary);
    }
    QFile::remove(path_);
    QDir().mkpath(path_);
    expectRefused(QStringLiteral("there is no such file"));
}

TEST_F(GatewayPluginTest, AProgramIsNoLibrary) {
    install(QStringLiteral("/proc/self/exe"));
    EXPECT_EQ(plugin_.makeClient(), nullptr);
}

QByteArray contentOf(const QString &path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The system's loader takes most of these, and the process would end at the first use of what is missing.
TEST_F(GatewayPluginTest, ALibraryThatWasCutOffAnywhereIsRefused) {
    const auto whole = contentOf(answers);
    ASSERT_GT(whole.size(), 4096);
    const auto step = std::max<qsizetype>(1, whole.size() / 500);
    for (qsizetype length = 0; length < whole.size(); length += step) {
        writeLibrary(whole.first(length));
        expectRefused(noLibrary);
    }
    writeLibrary(whole.chopped(1));
    expectRefused(noLibrary);
    writeLibrary(whole);
    EXPECT_TRUE(plugin_.makeClient());
}

TEST_F(GatewayPluginTest, ALibraryOfAnotherMachineIsRefused) {
    const auto whole = contentOf(answers);
    ASSERT_GT(whole.size(), 4096);
    // Width, order of bytes, type (no library but a program, or part of one), machine.
    for (const qsizetype position : { 4, 5, 16, 18 }) {
        auto bytes = whole;
        bytes[position] = static_cast<char>(bytes[position] ^ 1);
        writeLibrary(bytes);
        expectRefused(noLibrary);
    }
}

// The fields of the file's header and of what it points to, each with numbers that lead past the end or wrap.
TEST_F(GatewayPluginTest, NumbersInTheHeaderAreNotBelieved) {
    const auto whole = contentOf(answers);
    ASSERT_GT(whole.size(), 4096);
    const QByteArray ones(8, '\xff');
    for (const qsizetype position : { 0x20, 0x28, 0x36, 0x38, 0x3a, 0x3c, 0x48, 0x60 }) {
        auto bytes = whole;
        bytes.replace(position, position >= 0x36 && position < 0x40 ? 2 : 8,
            ones.first(position >= 0x36 && position < 0x40 ? 2 : 8));
        writeLibrary(bytes);
        expectRefused(noLibrary);
    }
}

TEST_F(GatewayPluginTest, ALibraryWithoutSectionsIsUsed) {
    auto bytes = contentOf(answers);
    ASSERT_GT(bytes.size(), 4096);
    bytes.replace(0x28, 8, QByteArray(8, '\0')); // where the sections are
    bytes.replace(0x3c, 4, QByteArray(4, '\0')); // how many, and which holds the names
    writeLibrary(bytes);
    EXPECT_TRUE(plugin_.makeClient());
    EXPECT_EQ(errors_, QStringList());
}

TEST_F(GatewayPluginTest, WhatALibraryThrowsIsCaught) {
    install(QStringLiteral(STUB_THROWS));
    expectRefused(QStringLiteral("it threw an exception"));
    expectRefused(QStringLiteral("it threw an exception"));
}

TEST_F(GatewayPluginTest, ALibraryThatMakesNothingGivesNoClient) {
    install(QStringLiteral(STUB_MAKES_NOTHING));
    expectRefused(QStringLiteral("it makes no client"));
}

TEST_F(GatewayPluginTest, ALibraryThatComesLaterIsFoundAtTheNextRequest) {
    EXPECT_EQ(plugin_.makeClient(), nullptr);
    install(answers);
    EXPECT_TRUE(plugin_.makeClient());
}

TEST_F(GatewayPluginTest, ALibraryThatIsMendedIsUsedAtTheNextRequest) {
    install(QStringLiteral(STUB_WRONG_VERSION));
    EXPECT_EQ(plugin_.makeClient(), nullptr);
    install(answers);
    const auto client = plugin_.makeClient();
    ASSERT_TRUE(client);
    EXPECT_EQ(statusFrom(*client), 204);
}

TEST_F(GatewayPluginTest, ALoadedLibraryMayBeReplacedOnTheDisk) {
    install(answers);
    ASSERT_TRUE(plugin_.makeClient());
    QFile::remove(path_);
    EXPECT_TRUE(plugin_.makeClient());
}

TEST_F(GatewayPluginTest, NothingIsLoadedBeforeTheFirstRequest) {
    install(answers);
    const GatewayPlugin another(path_, [](const QString &) {});
    const auto isMapped = [this] {
        QFile maps(QStringLiteral("/proc/self/maps"));
        return maps.open(QIODevice::ReadOnly) && maps.readAll().contains(path_.toUtf8());
    };
    EXPECT_FALSE(isMapped());
    EXPECT_TRUE(plugin_.makeClient());
    EXPECT_TRUE(isMapped());
}

} // namespace
