// gallery: pictures of every notice, as a bundle shows them.
//
//   SampleTexts      what a client's messages would say
//   Brand            other brands, made of the bundle
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
#include <QProcess>
#include <QTemporaryDir>
#include <QTextStream>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <set>

using namespace Qt::StringLiterals;

namespace {

const auto description
    = u"Draws the five notices as a bundle shows them: in each of its languages, in its own brand and in "
      "others, at\n"
      "scale 1 and 2, with short and long texts. Writes a PNG for each into OUT, and one page, "
      "OUT/index.html, "
      "that\n"
      "shows them side by side. Needs no desktop; it draws with the fonts that are installed."_s;

constexpr auto scaleVariable = "QT_SCALE_FACTOR";

[[noreturn]] void fail(const QString &reason) {
    QTextStream(stderr) << "gallery: " << reason << '\n';
    std::exit(EXIT_FAILURE); // NOLINT(concurrency-mt-unsafe): there is one thread
}

void write(const QString &path, const QByteArray &content) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        fail(path + u": "_s + file.errorString());
}

/// The folder `Contents` of what was named: the bundle, or that folder itself.
QString contentsOf(const QString &bundle) {
    for (const auto &folder : { bundle + u"/Contents"_s, bundle }) {
        if (QFile::exists(folder + u"/Resources"_s))
            return QDir(folder).absolutePath();
    }
    fail(bundle + u" is no bundle: it has no folder Contents/Resources"_s);
}

QStringList languagesOf(const QString &contents) {
    auto folders = QDir(contents + u"/Resources"_s).entryList({ u"*.lproj"_s }, QDir::Dirs);
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
    const auto path = folder.filePath(u"screens.json"_s);
    write(path,
        "{\"screens\": [{\"name\": \"gallery\", \"x\": 0, \"y\": 0, \"width\": 2560, \"height\": 2048,"
        " \"logicalDpi\": 96, \"logicalBaseDpi\": 96, \"dpr\": 1}]}\n");
    return u"offscreen:configfile="_s + path;
}

void drawInAnotherProcess(int scale) {
    auto environment = QProcess::systemEnvironment();
    environment << u"%1=%2"_s.arg(QLatin1String(scaleVariable)).arg(scale);
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    process.setEnvironment(environment);
    process.start(QCoreApplication::applicationFilePath(), QCoreApplication::arguments().mid(1));
    if (!process.waitForFinished(-1) || process.exitStatus() != QProcess::NormalExit
        || process.exitCode() != 0)
        fail(u"the pictures of scale %1 were not drawn"_s.arg(scale));
}

// The back end that draws into memory says of every window what it cannot do with it.
void handleQtMessage(QtMsgType type, const QMessageLogContext &, const QString &text) {
    if (type == QtCriticalMsg || type == QtFatalMsg)
        QTextStream(stderr) << "gallery: " << text << '\n';
}

QString counted(int number, const char *word) {
    return u"%1 %2%3"_s.arg(number).arg(QLatin1String(word), number == 1 ? "" : "s");
}

// Ends with a line of counts; the exit status.
int report(const QString &folder, const Findings &findings) {
    QTextStream(stdout) << folder << ": " << counted(findings.errors(), "error") << ", "
                        << counted(findings.warnings(), "warning") << '\n';
    return findings.errors() == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

QDir existingFolder(const QString &path) {
    if (!QDir(path).exists())
        fail(path + u": no such folder"_s);
    return QDir(path);
}

// The bundle of the same build or installation.
QString ownBundle() {
    const QDir programs(QCoreApplication::applicationDirPath());
    const auto built = programs.filePath(u"../NoticeAgent.app"_s);
    return QDir(built).exists() ? built : programs.filePath(u"../lib/notice-agent/NoticeAgent.app"_s);
}

int check(const QString &path, const QString &bundle) {
    Findings findings;
    checkBrand(existingFolder(path), QDir(contentsOf(bundle)), findings);
    return report(path, findings);
}

int checkTablesIn(const QString &path, const QString &keys) {
    const auto folder = existingFolder(path);
    Findings findings;
    checkTables(folder, existingFolder(keys.isEmpty() ? folder.filePath(u"en.lproj"_s) : keys), findings);
    return report(path, findings);
}

std::vector<Picture> picturesOf(
    const FileBundle &bundle, const QStringList &languages, const QStringList &wanted) {
    auto pictures = catalogue(languages, [&bundle](const QString &language, const QString &text) {
        const auto path = bundle.pathForResource(language, u"lproj"_s);
        const auto folder = path ? bundle.bundleWithPath(*path) : nullptr;
        return folder ? folder->localizedStringForKey(text, {}, u"Main"_s) : text;
    });
    std::erase_if(pictures, [&wanted](const Picture &picture) {
        const auto isIn = [&picture](const QString &text) { return picture.path().contains(text); };
        return !wanted.isEmpty() && std::none_of(wanted.begin(), wanted.end(), isIn);
    });
    if (pictures.empty())
        fail(u"there is nothing to draw"_s);
    return pictures;
}

/// @param ownScale  of a process that draws one scale alone, else 0
int draw(const QString &bundlePath, const QDir &out, const QStringList &wanted, int ownScale) {
    const auto contents = contentsOf(bundlePath);
    const FileBundle bundle(contents, [] { return QStringList { u"en"_s }; });
    const auto pictures = picturesOf(bundle, languagesOf(contents), wanted);
    NoticePainter painter(contents);
    std::set<int> otherScales;
    for (const auto &picture : pictures) {
        if (picture.scale != std::max(ownScale, 1)) {
            otherScales.insert(picture.scale);
            continue;
        }
        const auto path = out.filePath(picture.path());
        if (!QDir().mkpath(QFileInfo(path).path()) || !painter.paint(picture).save(path))
            fail(path + u" cannot be written"_s);
    }
    if (ownScale != 0)
        return EXIT_SUCCESS;
    for (const int scale : otherScales) {
        qputenv("GALLERY_SCALE", QByteArray::number(scale));
        drawInAnotherProcess(scale);
    }
    write(out.filePath(u"index.html"_s), galleryPage(titleOf(bundle), pictures));
    QTextStream(stdout) << pictures.size() << " pictures: " << out.absoluteFilePath(u"index.html"_s) << '\n';
    return EXIT_SUCCESS;
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
    const int ownScale = qEnvironmentVariableIntValue("GALLERY_SCALE");
    if (ownScale == 0)
        qputenv(scaleVariable, "1");
    QApplication::setStyle(new NoticeStyle);
    QApplication application(argumentCount, arguments);
    QApplication::setApplicationName(u"gallery"_s);
    QApplication::setApplicationVersion(QStringLiteral(NOTICE_VERSION));
    QApplication::setQuitOnLastWindowClosed(false);

    QCommandLineParser parser;
    parser.setApplicationDescription(description);
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addOptions({
        { u"only"_s, u"Draws the pictures whose path in OUT contains TEXT, and no others."_s, u"TEXT"_s },
        { u"check"_s,
            u"Checks a brand's folder and draws nothing. BUNDLE is what the brand is made of; it may be left "
            "out for the installed agent."_s,
            u"FOLDER"_s },
        { u"check-tables"_s,
            u"Checks the string tables below a folder of language folders, and draws nothing."_s,
            u"FOLDER"_s },
        { u"keys"_s,
            u"With --check-tables: a language folder with the keys that each table must hold (en.lproj)."_s,
            u"FOLDER"_s },
    });
    parser.addPositionalArgument(u"BUNDLE"_s, u"the bundle, NoticeAgent.app"_s);
    parser.addPositionalArgument(u"OUT"_s, u"the folder to write into; it is made when it is missing"_s);
    parser.process(application);
    const auto folders = parser.positionalArguments();
    if (parser.isSet(u"check"_s))
        return check(parser.value(u"check"_s), folders.value(0, ownBundle()));
    if (parser.isSet(u"check-tables"_s))
        return checkTablesIn(parser.value(u"check-tables"_s), parser.value(u"keys"_s));
    if (folders.size() != 2)
        fail(u"it takes a bundle and a folder to write into; see --help"_s);
    return draw(folders[0], QDir(folders[1]), parser.values(u"only"_s), ownScale);
}
