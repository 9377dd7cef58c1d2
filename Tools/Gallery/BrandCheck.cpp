#include "Tools/Gallery/BrandCheck.h"

#include "Contract/Brand.h"
#include "Contract/Bus.h"
#include "Formats/File.h"
#include "Formats/PropertyList.h"
#include "Platform/Image.h"
#include "Platform/Views/Contrast.h"
#include "Support/ColorFromHex.h"
#include "Tools/Gallery/TableCheck.h"

#include <QColor>
#include <QImage>
#include <QRegularExpression>
#include <QStringList>

#include <array>
#include <map>
#include <optional>
#include <utility>

namespace {

namespace Key = Contract::Brand;

constexpr QLatin1String settingsFile("Application_Shared.plist");
constexpr QLatin1String informationFile("Info.plist");
// The image that the concurrent-session notice shows, whatever the settings say.
constexpr QLatin1String formLogo("ic_zelvikLogo");
constexpr QColor formHeader(30, 34, 52);
// In the order in which the agent looks for an image, with the scale.
constexpr std::array imageFiles { std::pair(".png", 1), std::pair("@2x.png", 2), std::pair("@3x.png", 3),
    std::pair(".jpg", 1), std::pair(".svg", 0) };
// The box of a logo in a header, in pixels at scale 1.
constexpr QSize logoBox(412, 28);
// A shape that is to be told from its ground.
constexpr double visible = 3.0;
constexpr int maxFolderName = 100;
// The notices that count 30 seconds, and the second after it.
constexpr int shortTimeOut = 35;

QString fromView(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<int>(text.size()));
}

QString quoted(const QString &text) {
    return u'"' + text + u'"';
}

std::optional<Formats::PropertyList> readList(const QDir &folder, const QString &name) {
    const auto bytes = Formats::readFile(folder.filePath(name).toStdString());
    return bytes ? Formats::parsePropertyList(*bytes) : std::nullopt;
}

class BrandCheck {
public:
    BrandCheck(const QDir &folder, const QDir &contents, Findings &findings)
        : folder_(folder)
        , contents_(contents)
        , resources_(contents.filePath(QStringLiteral("Resources")))
        , findings_(findings) { }

    void check() {
        if (readSettings()) {
            checkColor();
            checkLogFolder();
            checkVendor();
            checkImages();
        }
        checkLanguages();
        checkInformation();
        checkOtherFiles();
    }

private:
    // --- settings

    bool readSettings() {
        used_ << settingsFile;
        if (!folder_.exists(settingsFile)) {
            findings_.error(settingsFile, QStringLiteral("is missing"));
            return false;
        }
        const auto list = readList(folder_, settingsFile);
        if (!list) {
            findings_.error(settingsFile,
                QStringLiteral("is not a property list of a dictionary that the agent can read"));
            return false;
        }
        QStringList missing;
        for (const auto &[key, fallback] : settings_) {
            if (!list->contains(key.toStdString()))
                missing << key;
        }
        for (const auto &[name, value] : *list) {
            const auto key = QString::fromStdString(name);
            if (!settings_.contains(key))
                reportUnknownKey(settingsFile, key, missing);
            else if (const auto *text = std::get_if<std::string>(&value))
                settings_[key] = QString::fromStdString(*text);
            else
                error(key, QStringLiteral("must be a string (default: %1)").arg(quoted(settings_[key])));
        }
        for (const auto &key : missing)
            warning(key, QStringLiteral("is missing (default: %1)").arg(quoted(settings_[key])));
        return true;
    }

    // A misspelt key is one cause: the key that was meant is not missing too.
    void reportUnknownKey(const QString &file, const QString &key, QStringList &missing) {
        const auto meant = suggestion(key, missing);
        const auto text = QStringLiteral("unknown key %1").arg(quoted(key));
        if (meant.isEmpty()) {
            findings_.warning(file, text);
            return;
        }
        findings_.error(file, text + meant);
        missing.removeOne(meant.section(u'"', 1, -2));
    }

    QString setting(std::string_view key) const { return settings_.at(fromView(key)); }
    void error(const QString &key, const QString &text) {
        findings_.error(settingsFile, key + QStringLiteral(": ") + text);
    }
    void warning(const QString &key, const QString &text) {
        findings_.warning(settingsFile, key + QStringLiteral(": ") + text);
    }
    void note(const QString &key, const QString &text) {
        findings_.note(settingsFile, key + QStringLiteral(": ") + text);
    }

    void checkColor() {
        static const QRegularExpression form(QStringLiteral("\\A\\s*#?[0-9A-Fa-f]{6}\\s*\\z"));
        const auto text = setting(Key::globalAppViewBackgroundColor);
        header_ = colorFromHex(text);
        if (!form.match(text).hasMatch())
            error(fromView(Key::globalAppViewBackgroundColor),
                QStringLiteral("%1 is not six hexadecimal digits; the header would be %2")
                    .arg(quoted(text), header_.name().toUpper()));
    }

    void checkLogFolder() {
        static const QRegularExpression form(QStringLiteral("\\A[A-Za-z0-9][A-Za-z0-9._-]*\\z"));
        const auto key = fromView(Key::LogFolderName);
        const auto name = setting(Key::LogFolderName);
        if (!form.match(name).hasMatch()) {
            error(key,
                quoted(name)
                    + QStringLiteral(" is not a plain folder name of letters, digits, dots, hyphens and "
                                     "underscores"));
            return;
        }
        if (name.size() > maxFolderName)
            error(key, QStringLiteral("is longer than %1 characters").arg(maxFolderName));
        if (name == fromView(Key::defaultLogFolderName))
            warning(key,
                quoted(name)
                    + QStringLiteral(" is that of the unbranded agent, which then shares messages and log"));
        const auto bytes = name.toStdString();
        note(key,
            QStringLiteral("messages to the agent are named %1, its bus name is %2")
                .arg(quoted(QString::fromStdString(Contract::messageName(bytes))),
                    QString::fromStdString(Contract::brandName(bytes))));
        note(key, QStringLiteral("the log is ") + QString::fromStdString(Key::logFilePath(bytes)));
    }

    void checkVendor() {
        const auto key = fromView(Key::Vendor);
        const auto vendor = setting(Key::Vendor);
        const auto black = fromView(Key::blackVendor);
        if (vendor.trimmed().isEmpty())
            warning(key, QStringLiteral("is empty"));
        else if (vendor != vendor.trimmed())
            warning(key, quoted(vendor) + QStringLiteral(" begins or ends with a blank"));
        note(key,
            QStringLiteral("the call to authenticate again is named ")
                + quoted(QString::fromStdString(Contract::mainAppNotifierName(vendor.toStdString()))));
        if (vendor == black)
            note(key,
                QStringLiteral("with %1 the window of the CASB and the maintenance notice is black")
                    .arg(black));
        else if (vendor.trimmed().toUpper() == black)
            warning(key, QStringLiteral("%1 is not %2: no window is black").arg(quoted(vendor), black));
    }

    // --- images

    QStringList filesOf(const QString &image, const QDir &folder) const {
        QStringList files;
        for (const auto &[ending, scale] : imageFiles) {
            if (const auto name = image + QLatin1String(ending); folder.exists(name))
                files << name;
        }
        return files;
    }

    void checkImages() {
        const auto key = fromView(Key::AppLogo);
        // With or without its extension.
        static const QRegularExpression extension(QStringLiteral("\\.(png|jpg|svg)\\z"));
        const auto logo = setting(Key::AppLogo).remove(extension);
        if (logo.isEmpty() || logo == u"." || logo == u".." || logo.contains(u'/')
            || logo.contains(QChar())) {
            error(key, quoted(logo) + QStringLiteral(" is not the name of an image"));
            return;
        }
        for (const auto &name : QStringList { logo, formLogo }) {
            const auto files = filesOf(name, folder_);
            used_ << files;
            if (!files.isEmpty() && checkFiles(name, files))
                checkVisible(name, files);
            if (logo == formLogo)
                break;
        }
        const bool hasLogo = !filesOf(logo, folder_).isEmpty();
        if (!hasLogo)
            reportMissingLogo(logo);
        else if (filesOf(formLogo, folder_).isEmpty())
            findings_.note(logo + QStringLiteral(".*"),
                QStringLiteral("also replaces %1, which the concurrent-session notice shows").arg(formLogo));
    }

    void reportMissingLogo(const QString &logo) {
        const auto key = fromView(Key::AppLogo);
        if (!filesOf(logo, resources_).isEmpty()) {
            warning(key,
                QStringLiteral("there is no image %1 here: the agent's own logo stays").arg(quoted(logo)));
            return;
        }
        QStringList images;
        static const QRegularExpression ending(QStringLiteral("(@[23]x)?\\.(png|jpg|svg)\\z"));
        for (const auto &name : folder_.entryList(QDir::Files)) {
            if (ending.match(name).hasMatch() && !images.contains(QString(name).remove(ending)))
                images << QString(name).remove(ending);
        }
        error(key,
            QStringLiteral("there is no image %1 (.png, @2x.png, @3x.png, .jpg or .svg)").arg(quoted(logo))
                + suggestion(logo, images));
    }

    // Whether all can be drawn.
    bool checkFiles(const QString &logo, const QStringList &files) {
        bool areGood = true;
        std::optional<QSize> plain;
        bool hasFine = false;
        for (const auto &[ending, scale] : imageFiles) {
            const auto name = logo + QLatin1String(ending);
            if (!files.contains(name))
                continue;
            const auto image = drawable(name);
            if (!image) {
                areGood = false;
                continue;
            }
            const auto size = image->size();
            hasFine = hasFine || scale != 1;
            if (scale == 1 && !plain)
                plain = size;
            else if (plain && scale > 1 && size != *plain * scale)
                findings_.error(name,
                    QStringLiteral("is %1 x %2 pixels; %3 times the plain image is %4 x %5")
                        .arg(size.width())
                        .arg(size.height())
                        .arg(scale)
                        .arg(plain->width() * scale)
                        .arg(plain->height() * scale));
        }
        if (areGood && plain)
            checkSize(logo, *plain, hasFine);
        return areGood;
    }

    // As the agent reads and draws it; nothing, and an error, where it would not.
    std::optional<Image> drawable(const QString &name) {
        const auto bytes = Formats::readFile(folder_.filePath(name).toStdString());
        if (!bytes) {
            findings_.error(name, QStringLiteral("cannot be read, or is larger than 16 MiB"));
            return std::nullopt;
        }
        const QByteArray data(bytes->data(), static_cast<int>(bytes->size()));
        const auto image = Image::withData(data);
        if (!image) {
            findings_.error(name,
                data.contains("<svg") ? QStringLiteral(
                    "the agent does not draw it: an SVG must hold no <image>, <use>, script, "
                    "animation, entity or import")
                                      : QStringLiteral("is not an image that the agent can draw"));
            return std::nullopt;
        }
        return image;
    }

    void checkSize(const QString &logo, const QSize &size, bool hasFine) {
        if (size.height() < logoBox.height())
            findings_.warning(logo,
                QStringLiteral("is %1 pixels high and drawn %2 high: it will be blurred")
                    .arg(size.height())
                    .arg(logoBox.height()));
        if (size.width() * logoBox.height() > size.height() * logoBox.width())
            findings_.warning(logo,
                QStringLiteral("is so wide that it is drawn less than %1 pixels high").arg(logoBox.height()));
        if (size.height() < 2 * logoBox.height() && !hasFine)
            findings_.warning(
                logo, QStringLiteral("has neither @2x.png nor .svg: it will be blurred on a fine screen"));
    }

    // How much of the logo can be told from the header it stands on.
    void checkVisible(const QString &logo, const QStringList &files) {
        const auto image
            = drawable(files.last().endsWith(QLatin1String(".svg")) ? files.last() : files.first());
        const auto picture
            = image ? image->scaledToFit(logoBox, 1).convertToFormat(QImage::Format_ARGB32) : QImage();
        std::map<QRgb, double> inks;
        double ink = 0;
        for (int y = 0; y < picture.height(); ++y) {
            for (int x = 0; x < picture.width(); ++x) {
                const auto pixel = picture.pixel(x, y);
                inks[pixel | 0xff000000U] += qAlpha(pixel);
                ink += qAlpha(pixel);
            }
        }
        if (ink == 0) {
            findings_.error(logo, QStringLiteral("nothing of it is drawn: it is empty"));
            return;
        }
        std::vector<std::pair<QColor, QString>> grounds;
        if (logo != formLogo || filesOf(formLogo, folder_).isEmpty() || setting(Key::AppLogo) == formLogo)
            grounds.emplace_back(header_, QStringLiteral("the header, "));
        if (logo == formLogo || filesOf(formLogo, folder_).isEmpty())
            grounds.emplace_back(formHeader, QStringLiteral("the header of the concurrent-session notice, "));
        for (const auto &[ground, name] : grounds) {
            double hidden = 0;
            for (const auto &[color, amount] : inks)
                hidden += Contrast::ratio(QColor(color), ground) < visible ? amount : 0;
            if (hidden > ink / 2)
                findings_.warning(logo,
                    QStringLiteral(
                        "%1 percent of it have a contrast below %2 : 1 with %3%4, and are hard to see")
                        .arg(qRound(100 * hidden / ink))
                        .arg(visible)
                        .arg(name, ground.name().toUpper()));
        }
    }

    // --- languages

    QStringList knownLanguages() const {
        return resources_.entryList({ QStringLiteral("*.lproj") }, QDir::Dirs);
    }

    void checkLanguages() {
        const auto known = knownLanguages();
        const QDir english(resources_.filePath(QStringLiteral("en.lproj")));
        for (const auto &name : folder_.entryList({ QStringLiteral("*.lproj") }, QDir::Dirs)) {
            used_ << name;
            const QDir language(folder_.filePath(name));
            const bool isKnown = known.contains(name);
            if (const auto fault = faultOfLanguage(name.section(u'.', 0, 0)); !fault.isEmpty()) {
                findings_.error(name, fault);
                continue;
            }
            if (!isKnown)
                findings_.note(name, QStringLiteral("is a language that the agent does not have yet"));
            for (const auto &table : tableNames()) {
                if (language.exists(table) || !isKnown)
                    checkTable(language, table, keysOf(english, table), findings_);
            }
            for (const auto &file : language.entryList(QDir::AllEntries | QDir::NoDotAndDotDot)) {
                if (!tableNames().contains(file))
                    findings_.warning(
                        name + u'/' + file, QStringLiteral("is not used") + suggestion(file, tableNames()));
            }
        }
    }

    // --- Info.plist and the rest

    void checkInformation() {
        used_ << informationFile;
        if (!folder_.exists(informationFile))
            return;
        const auto list = readList(folder_, informationFile);
        const auto own = readList(contents_, informationFile);
        if (!list || !own) {
            findings_.error(informationFile,
                QStringLiteral("is not a property list of a dictionary that the agent can read"));
            return;
        }
        QStringList missing;
        for (const auto &[key, value] : *own) {
            if (!list->contains(key))
                missing << QString::fromStdString(key);
        }
        for (const auto &[name, value] : *list) {
            const auto key = QString::fromStdString(name);
            const auto agentValue = own->find(name);
            if (agentValue == own->end())
                reportUnknownKey(informationFile, key, missing);
            else if (const auto fault = faultOfInformation(name, value, agentValue->second); !fault.isEmpty())
                findings_.error(informationFile, key + QStringLiteral(": ") + fault);
        }
    }

    QString faultOfInformation(const std::string &key, const Formats::PropertyValue &value,
        const Formats::PropertyValue &agentValue) {
        if (key == Key::timeOutKey) {
            const auto *seconds = std::get_if<std::int64_t>(&value);
            if (!seconds)
                return QStringLiteral("must be an integer (default: %1)").arg(Key::defaultTimeOut);
            if (*seconds <= 0)
                return QStringLiteral("is %1: the agent would end as soon as it starts").arg(*seconds);
            if (*seconds < shortTimeOut)
                findings_.warning(informationFile,
                    QStringLiteral("%1: is %2: the notices that count 30 seconds are cut short")
                        .arg(fromView(Key::timeOutKey))
                        .arg(*seconds));
            return {};
        }
        if (value.index() != agentValue.index())
            return QStringLiteral("has another type than in the agent's Info.plist");
        if (key == "CFBundleExecutable" && value != agentValue)
            return QStringLiteral("must stay as it is");
        if (key == "CFBundleDevelopmentRegion") {
            const auto folder
                = QString::fromStdString(std::get<std::string>(value)) + QStringLiteral(".lproj");
            if (!knownLanguages().contains(folder) && !folder_.exists(folder))
                return QStringLiteral("there is no folder ") + folder;
        }
        return {};
    }

    void checkOtherFiles() {
        QStringList expected;
        for (const auto &name : { QString(settingsFile), QString(informationFile) }) {
            if (!folder_.exists(name))
                expected << name;
        }
        for (const auto &name : folder_.entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System)) {
            if (!used_.contains(name))
                findings_.warning(name, QStringLiteral("is not used") + suggestion(name, expected));
        }
    }

    QDir folder_;
    QDir contents_;
    QDir resources_;
    Findings &findings_;
    std::map<QString, QString> settings_ { { fromView(Key::AppLogo), fromView(Key::defaultAppLogo) },
        { fromView(Key::Vendor), fromView(Key::defaultVendor) },
        { fromView(Key::LogFolderName), fromView(Key::defaultLogFolderName) },
        { fromView(Key::globalAppViewBackgroundColor), fromView(Key::defaultBackgroundColor) } };
    QColor header_;
    QStringList used_;
};

} // namespace

void checkBrand(const QDir &folder, const QDir &contents, Findings &findings) {
    BrandCheck(folder, contents, findings).check();
}
