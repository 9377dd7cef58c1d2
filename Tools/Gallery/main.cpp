// gallery: pictures of every notice, as a bundle shows them.
//
//   SampleTexts      what a client's messages would say
//   Brand            other brands laid over the bundle
//   Catalogue        which pictures there are
//   NoticePainter    one message, one window, one image
//   Page             the HTML page
//   BrandCheck       what is wrong with a brand's folder
//   TableCheck       what is wrong with string tables
//
// A scale is fixed for a whole process, so that this one draws scale 1 and starts another for each other one.

#include "Platform/Qt/FileBundle.h"
#include "Platform/Views/NoticeStyle.h"
#include "Tools/Gallery/BrandCheck.h"
#include "Tools/Gallery/NoticePainter.h"
#include "Tools/Gallery/Page.h"
#include "Tools/Gallery/TableCheck.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QFile>
#include <QPainter>
#include <QProcess>
#include <QTemporaryDir>
#include <QTextStream>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <set>

namespace {

const auto description = QStringLiteral(
    "Draws the five notices as a bundle shows them: in each of its languages, in its own brand and in "
    "others, at\n"
    "scale 1 and 2, with short and long texts. Writes a PNG for each into OUT, and one page, OUT/index.html, "
    "that\n"
    "shows them side by side. Needs no desktop; it draws with the fonts that are installed.");

constexpr auto scaleVariable = "QT_SCALE_FACTOR";

[[noreturn]] void fail(const QString &reason) {
    QTextStream(stderr) << "gallery: " << reason << '\n';
    std::exit(EXIT_FAILURE); // NOLINT(concurrency-mt-unsafe): there is one thread
}

void write(const QString &path, const QByteArray &content) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        fail(path + QStringLiteral(": ") + file.errorString());
}

/// The folder `Contents` of what was named: the bundle, or that folder itself.
QString contentsOf(const QString &bundle) {
    for (const auto &folder : { bundle + QStringLiteral("/Contents"), bundle }) {
        if (QFile::exists(folder + QStringLiteral("/Resources")))
            return QDir(folder).absolutePath();
    }
    fail(bundle + QStringLiteral(" is no bundle: it has no folder Contents/Resources"));
}

QStringList languagesOf(const QString &contents) {
    auto folders
        = QDir(contents + QStringLiteral("/Resources")).entryList({ QStringLiteral("*.lproj") }, QDir::Dirs);
    for (auto &folder : folders)
        folder.chop(static_cast<int>(qstrlen(".lproj")));
    return folders;
}

QString titleOf(const Bundle &bundle) {
    const auto text = [&bundle](const char *key) {
        return bundle.objectForInfoDictionaryKey(QString::fromLatin1(key)).toString();
    };
    return (text("CFBundleName") + u' ' + text("CFBundleShortVersionString")).trimmed();
}

// Big enough at every scale that the notices are as on a desktop.
QString screenDescription(const QDir &folder) {
    const auto path = folder.filePath(QStringLiteral("screens.json"));
    write(path,
        "{\"screens\": [{\"name\": \"gallery\", \"x\": 0, \"y\": 0, \"width\": 2560, \"height\": 2048,"
        " \"logicalDpi\": 96, \"logicalBaseDpi\": 96, \"dpr\": 1}]}\n");
    return QStringLiteral("offscreen:configfile=") + path;
}

void drawInAnotherProcess(int scale) {
    auto environment = QProcess::systemEnvironment();
    environment << QStringLiteral("%1=%2").arg(QLatin1String(scaleVariable)).arg(scale);
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    process.setEnvironment(environment);
    process.start(QCoreApplication::applicationFilePath(), QCoreApplication::arguments().mid(1));
    if (!process.waitForFinished(-1) || process.exitStatus() != QProcess::NormalExit
        || process.exitCode() != 0)
        fail(QStringLiteral("the pictures of scale %1 were not drawn").arg(scale));
}

// The back end that draws into memory says of every window what it cannot do with it.
void handleQtMessage(QtMsgType type, const QMessageLogContext &, const QString &text) {
    if (type == QtCriticalMsg || type == QtFatalMsg)
        QTextStream(stderr) << "gallery: " << text << '\n';
}

QString counted(int number, const char *word) {
    return QStringLiteral("%1 %2%3").arg(number).arg(QLatin1String(word), number == 1 ? "" : "s");
}

// Ends with a line of counts; the exit status.
int report(const QString &folder, const Findings &findings) {
    QTextStream(stdout) << folder << ": " << counted(findings.errors(), "error") << ", "
                        << counted(findings.warnings(), "warning") << '\n';
    return findings.errors() == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

QDir existingFolder(const QString &path) {
    if (!QDir(path).exists())
        fail(path + QStringLiteral(": no such folder"));
    return QDir(path);
}

// The bundle of the same build or installation.
QString ownBundle() {
    const QDir programs(QCoreApplication::applicationDirPath());
    const auto built = programs.filePath(QStringLiteral("../NoticeAgent.app"));
    return QDir(built).exists() ? built
                                : programs.filePath(QStringLiteral("../lib/notice-agent/NoticeAgent.app"));
}

// The notices in English, beside each other.
void writePreview(const FileBundle &bundle, const QString &path) {
    const QStringList columns[]
        = { { QStringLiteral("casb"), QStringLiteral("concurrent-session"), QStringLiteral("maintenance") },
              { QStringLiteral("re-authentication"), QStringLiteral("auto-disconnect"),
                  QStringLiteral("auto-disconnected") } };
    constexpr int gap = 24;
    NoticePainter painter(bundle);
    std::vector<std::pair<QPoint, QImage>> notices;
    QSize size;
    const auto pictures
        = catalogue({ QStringLiteral("en") }, [](const QString &, const QString &text) { return text; });
    for (int column = 0, x = gap; column < 2; ++column) {
        int y = gap;
        int width = 0;
        for (const auto &name : columns[column]) {
            const auto wanted = QStringLiteral("languages/en-%1.png").arg(name);
            const auto picture = std::find_if(pictures.begin(), pictures.end(),
                [&wanted](const Picture &candidate) { return candidate.path() == wanted; });
            const auto notice = painter.paint(*picture);
            notices.emplace_back(QPoint(x, y), notice);
            y += notice.height() + gap;
            width = std::max(width, notice.width());
        }
        x += width + gap;
        size = QSize(x, std::max(size.height(), y));
    }
    QImage sheet(size, QImage::Format_RGB32);
    sheet.fill(QColor(207, 214, 228));
    QPainter sheetPainter(&sheet);
    for (const auto &[place, notice] : notices)
        sheetPainter.drawImage(place, notice);
    sheetPainter.end();
    if (!sheet.save(path))
        fail(path + QStringLiteral(" cannot be written"));
}

} // namespace

int main(int argumentCount, char **arguments) {
    qInstallMessageHandler(handleQtMessage);
    // Static, so that it goes however the process ends.
    static const QTemporaryDir scratch;
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", screenDescription(QDir(scratch.path())).toLocal8Bit());
    // Where there is none, as for root, the toolkit would make one and leave it behind.
    if (qEnvironmentVariableIsEmpty("XDG_RUNTIME_DIR"))
        qputenv("XDG_RUNTIME_DIR", scratch.path().toLocal8Bit());
    // Set for a process of ours that draws one scale alone.
    const int ownScale = qEnvironmentVariableIntValue("GALLERY_SCALE");
    if (ownScale == 0)
        qputenv(scaleVariable, "1");
    QApplication::setStyle(new NoticeStyle);
    QApplication application(argumentCount, arguments);
    QApplication::setApplicationName(QStringLiteral("gallery"));
    QApplication::setApplicationVersion(QStringLiteral(NOTICE_VERSION));
    QApplication::setQuitOnLastWindowClosed(false);

    QCommandLineParser parser;
    parser.setApplicationDescription(description);
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption onlyOption(QStringLiteral("only"),
        QStringLiteral("Draws the pictures whose path in OUT contains TEXT, and no others."),
        QStringLiteral("TEXT"));
    parser.addOption(onlyOption);
    const QCommandLineOption checkOption(QStringLiteral("check"),
        QStringLiteral(
            "Checks a brand's folder and draws nothing. BUNDLE is what the brand is made of; it may be left "
            "out for the installed agent."),
        QStringLiteral("FOLDER"));
    const QCommandLineOption quietOption(QStringLiteral("quiet"), QStringLiteral("With --check: no notes."));
    const QCommandLineOption checkTablesOption(QStringLiteral("check-tables"),
        QStringLiteral("Checks the string tables below a folder of language folders, and draws nothing."),
        QStringLiteral("FOLDER"));
    const QCommandLineOption keysOption(QStringLiteral("keys"),
        QStringLiteral(
            "With --check-tables: a language folder with the keys that each table must hold (en.lproj)."),
        QStringLiteral("FOLDER"));
    const QCommandLineOption previewOption(QStringLiteral("preview"),
        QStringLiteral("Draws the notices of BUNDLE in English on one picture, a PNG."),
        QStringLiteral("FILE"));
    parser.addOptions({ checkOption, quietOption, checkTablesOption, keysOption, previewOption });
    parser.addPositionalArgument(QStringLiteral("BUNDLE"), QStringLiteral("the bundle, NoticeAgent.app"));
    parser.addPositionalArgument(
        QStringLiteral("OUT"), QStringLiteral("the folder to write into; it is made when it is missing"));
    parser.process(application);
    const auto folders = parser.positionalArguments();
    if (parser.isSet(checkOption)) {
        const auto folder = existingFolder(parser.value(checkOption));
        Findings findings(parser.isSet(quietOption) ? Findings::Notes::LeftOut : Findings::Notes::Shown);
        checkBrand(folder, QDir(contentsOf(folders.value(0, ownBundle()))), findings);
        return parser.isSet(quietOption) ? findings.errors() != 0
                                         : report(parser.value(checkOption), findings);
    }
    if (parser.isSet(checkTablesOption)) {
        const auto folder = existingFolder(parser.value(checkTablesOption));
        const auto keys = parser.isSet(keysOption) ? existingFolder(parser.value(keysOption))
                                                   : QDir(folder.filePath(QStringLiteral("en.lproj")));
        Findings findings(Findings::Notes::Shown);
        checkTables(folder, keys, findings);
        return report(parser.value(checkTablesOption), findings);
    }
    if (parser.isSet(previewOption)) {
        const FileBundle bundle(
            contentsOf(folders.value(0, ownBundle())), [] { return QStringList { QStringLiteral("en") }; });
        writePreview(bundle, parser.value(previewOption));
        return EXIT_SUCCESS;
    }
    if (folders.size() != 2)
        fail(QStringLiteral("it takes a bundle and a folder to write into; see --help"));

    const auto contents = contentsOf(folders[0]);
    const QDir out(folders[1]);
    const FileBundle bundle(contents, [] { return QStringList { QStringLiteral("en") }; });
    auto pictures = catalogue(languagesOf(contents), [&bundle](const QString &language, const QString &text) {
        const auto path = bundle.pathForResource(language, QStringLiteral("lproj"));
        const auto folder = path ? bundle.bundleWithPath(*path) : nullptr;
        return folder ? folder->localizedStringForKey(text, {}, QStringLiteral("Main")) : text;
    });
    if (const auto wanted = parser.values(onlyOption); !wanted.isEmpty()) {
        std::erase_if(pictures, [&wanted](const Picture &picture) {
            return std::none_of(wanted.begin(), wanted.end(),
                [&picture](const QString &text) { return picture.path().contains(text); });
        });
    }
    if (pictures.empty())
        fail(QStringLiteral("there is nothing to draw"));

    NoticePainter painter(bundle);
    std::set<int> otherScales;
    for (const auto &picture : pictures) {
        if (picture.scale != std::max(ownScale, 1)) {
            otherScales.insert(picture.scale);
            continue;
        }
        const auto path = out.filePath(picture.path());
        if (!QDir().mkpath(QFileInfo(path).path()) || !painter.paint(picture).save(path))
            fail(path + QStringLiteral(" cannot be written"));
    }
    if (ownScale != 0)
        return EXIT_SUCCESS;
    for (const int scale : otherScales) {
        qputenv("GALLERY_SCALE", QByteArray::number(scale));
        drawInAnotherProcess(scale);
    }
    write(out.filePath(QStringLiteral("index.html")), galleryPage(titleOf(bundle), pictures));
    QTextStream(stdout) << pictures.size()
                        << " pictures: " << out.absoluteFilePath(QStringLiteral("index.html")) << '\n';
    return EXIT_SUCCESS;
}
