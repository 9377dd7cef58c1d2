#include "Platform/Qt/GatewayPlugin.h"

#include "ServiceTier/portalGatewayServiceTier.h"
#include "Tests/Platform/PrintQt.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

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

class UnusableLibrary : public GatewayPluginTest,
                        public testing::WithParamInterface<std::pair<const char *, const char *>> { };

TEST_P(UnusableLibrary, GivesNoClient) {
    install(QString::fromUtf8(GetParam().first));
    expectRefused(QString::fromLatin1(GetParam().second));
    expectRefused(QString::fromLatin1(GetParam().second));
}

INSTANTIATE_TEST_SUITE_P(Kinds, UnusableLibrary,
    testing::Values(std::pair(STUB_WRONG_VERSION, "it is of another version"),
        std::pair(STUB_NO_CREATE, "it lacks the functions"), std::pair(STUB_THROWS, "it threw an exception"),
        std::pair(STUB_MAKES_NOTHING, "it makes no client")));

TEST_F(GatewayPluginTest, WhatIsNoLibraryGivesNoClient) {
    for (const auto &bytes : { QByteArray(), QByteArray("no library"), QByteArray(10'000, '\0') }) {
        errors_.clear();
        writeLibrary(bytes);
        EXPECT_EQ(plugin_.makeClient(), nullptr);
        ASSERT_EQ(errors_.size(), 1);
        EXPECT_TRUE(errors_.first().startsWith(
            QStringLiteral("The gateway client %1 cannot be used: Cannot load library").arg(path_)))
            << errors_.first().toStdString();
    }
    QFile::remove(path_);
    QDir().mkpath(path_);
    expectRefused(QStringLiteral("there is no such file"));
}

TEST_F(GatewayPluginTest, WhatARequestThrowsIsAResponseWithoutAStatus) {
    install(answers);
    const auto client = plugin_.makeClient();
    ASSERT_TRUE(client);
    int responses = 0;
    client->request("http://localhost", nullptr, "THROW", [&responses](const ServiceTierResponse &response) {
        ++responses;
        EXPECT_EQ(response.httpStatusCode, std::nullopt);
    });
    EXPECT_EQ(responses, 1);
}

TEST_F(GatewayPluginTest, ALibraryThatIsMendedIsUsedAtTheNextRequest) {
    install(QStringLiteral(STUB_WRONG_VERSION));
    EXPECT_EQ(plugin_.makeClient(), nullptr);
    install(answers);
    const auto client = plugin_.makeClient();
    ASSERT_TRUE(client);
    EXPECT_EQ(statusFrom(*client), 204);
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
