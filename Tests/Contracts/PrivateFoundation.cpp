// The main function of the tests over GNUstep's Foundation: gives them a distributed notification daemon of
// their own, of which nothing is left afterwards.
//
// Programs and daemon meet in a folder of the one for temporary files, by sockets of the file system alone;
// which one that is, is looked up in the environment while the library is loaded. So this program starts
// itself once more, in such an environment.

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <sys/prctl.h>

namespace {

constexpr auto mark = "NOTICE_TEST_PRIVATE_FOUNDATION";

// Whatever becomes of this process, the two go with it.
void endWithParent() {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
}

bool listens(const QString &folder) {
    const QDir names(folder + QStringLiteral("/NSMessagePort/names"));
    return names.exists() && !names.isEmpty();
}

bool waitUntilListening(QProcess &daemon, const QString &folder) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!listens(folder)) {
        if (std::chrono::steady_clock::now() > end || daemon.waitForFinished(1))
            return false;
        QThread::msleep(5);
    }
    return true;
}

int runBesideDaemon(int count, char **arguments) {
    const QTemporaryDir folder;
    auto environment = QProcessEnvironment::systemEnvironment();
    for (const auto *variable : { "TEMP", "TMP", "HOME" })
        environment.insert(QString::fromLatin1(variable), folder.path());
    environment.insert(QString::fromLatin1(mark), QStringLiteral("1"));

    QProcess daemon;
    daemon.setProcessEnvironment(environment);
    daemon.setChildProcessModifier(endWithParent);
    daemon.start(QStringLiteral(NOTICE_GDNC), { QStringLiteral("--no-fork") });
    if (!waitUntilListening(daemon, folder.path())) {
        std::fprintf(
            stderr, "%s does not start: %s\n", NOTICE_GDNC, daemon.readAllStandardError().constData());
        daemon.kill();
        daemon.waitForFinished(-1);
        return EXIT_FAILURE;
    }

    QProcess tests;
    tests.setProcessEnvironment(environment);
    tests.setChildProcessModifier(endWithParent);
    tests.setProcessChannelMode(QProcess::ForwardedChannels);
    QStringList options;
    for (int index = 1; index < count; ++index)
        options << QString::fromLocal8Bit(arguments[index]);
    tests.start(QStringLiteral("/proc/self/exe"), options);
    tests.waitForFinished(-1);

    daemon.kill();
    daemon.waitForFinished(-1);
    return tests.exitStatus() == QProcess::NormalExit ? tests.exitCode() : EXIT_FAILURE;
}

} // namespace

int main(int count, char **arguments) {
    const bool lists = std::any_of(arguments, arguments + count,
        [](const char *argument) { return std::string_view(argument) == "--gtest_list_tests"; });
    if (!lists && !qEnvironmentVariableIsSet(mark))
        return runBesideDaemon(count, arguments);
    testing::InitGoogleMock(&count, arguments);
    return RUN_ALL_TESTS();
}
