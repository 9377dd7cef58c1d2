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

using namespace Qt::StringLiterals;

namespace {

namespace Key = Contract::Brand;

constexpr QLatin1String settingsFile("Application_Shared.plist");
constexpr QLatin1String informationFile("Info.plist");
const auto unreadable = u"is not well-formed XML, or not a property list that holds a dictionary"_s;
// The image that the concurrent-session notice shows, whatever the settings say.
constexpr QLatin1String formLogo("ic_zelvikLogo");
constexpr QColor formHeader(30, 34, 52);
// In the order in which the agent looks for an image, with the scale.
constexpr std::array imageFiles { std::pair(".png", 1), std::pair("@2x.png", 2), std::pair("@3x.png", 3),
    std::pair(".jpg", 1), std::pair(".svg", 0) };
// The box of a logo in a header, in pixels at scale 1.
constexpr QSize logoBox(412, 28);
constexpr double minContrast = 3.0;
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
        , resources_(contents.filePath(u"Resources"_s))
        , findings_(findings) { }

    void check() {
        if (readSettings()) {
            checkColor();
            checkLogFolder();
            checkVendor();
            checkLogos();
        }
        checkLanguages();
        checkInformation();
        // With wrong settings the logo is not found: that is one fault.
        if (findings_.errors() > 0)
            used_ << folder_.entryList({ u"*.png"_s, u"*.jpg"_s, u"*.svg"_s });
        for (const auto &name : folder_.entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System)) {
            if (!used_.contains(name))
                findings_.warning(
                    name, u"is not used"_s + suggestion(name, { settingsFile, informationFile }));
        }
    }

private:
    // --- settings

    bool readSettings() {
        used_ << settingsFile;
        const auto list = readList(folder_, settingsFile);
        if (!list) {
            findings_.error(settingsFile, folder_.exists(settingsFile) ? unreadable : u"is missing"_s);
            return false;
        }
        QStringList settingKeys;
        for (const auto &setting : settings_)
            settingKeys << setting.first;
        for (const auto &[name, value] : *list) {
            const auto key = QString::fromStdString(name);
            if (!settings_.contains(key))
                findings_.error(settingsFile, u"unknown key "_s + quoted(key) + suggestion(key, settingKeys));
            else if (const auto *text = std::get_if<std::string>(&value))
                settings_[key] = QString::fromStdString(*text);
            else
                findings_.error(
                    settingsFile, u"%1: must be a string (default: %2)"_s.arg(key, quoted(settings_[key])));
        }
        for (const auto &[key, value] : settings_) {
            if (!list->contains(key.toStdString()))
                Findings::note(settingsFile, u"%1: is missing (default: %2)"_s.arg(key, quoted(value)));
        }
        return true;
    }

    QString setting(std::string_view key) const { return settings_.at(fromView(key)); }
    static QString of(std::string_view key, const QString &text) { return fromView(key) + u": "_s + text; }

    void checkColor() {
        static const QRegularExpression form(u"\\A\\s*#?[0-9A-Fa-f]{6}\\s*\\z"_s);
        const auto text = setting(Key::globalAppViewBackgroundColor);
        header_ = colorFromHex(text);
        if (!form.match(text).hasMatch())
            findings_.error(settingsFile,
                of(Key::globalAppViewBackgroundColor,
                    u"%1 is not six hexadecimal digits; the header would be %2"_s.arg(
                        quoted(text), header_.name().toUpper())));
    }

    void checkLogFolder() {
        static const QRegularExpression form(u"\\A[A-Za-z0-9][A-Za-z0-9._-]{0,99}\\z"_s);
        const auto name = setting(Key::LogFolderName);
        const auto text = [](const QString &words) { return of(Key::LogFolderName, words); };
        if (!form.match(name).hasMatch()) {
            findings_.error(settingsFile,
                text(quoted(name)
                    + u" is not a plain folder name of at most 100 letters, digits, dots, hyphens and "
                      "underscores"_s));
            return;
        }
        if (name == fromView(Key::defaultLogFolderName))
            findings_.warning(settingsFile,
                text(quoted(name)
                    + u" is that of the unbranded agent: only one of the two can be installed"_s));
        const auto bytes = name.toStdString();
        Findings::note(settingsFile,
            text(u"messages to the agent are named %1, its bus name is %2"_s.arg(
                quoted(QString::fromStdString(Contract::messageName(bytes))),
                QString::fromStdString(Contract::brandName(bytes)))));
        Findings::note(
            settingsFile, text(u"the log is "_s + QString::fromStdString(Key::logFilePath(bytes))));
    }

    void checkVendor() {
        const auto vendor = setting(Key::Vendor);
        const auto black = fromView(Key::blackVendor);
        const auto text = [](const QString &words) { return of(Key::Vendor, words); };
        Findings::note(settingsFile,
            text(u"the call to authenticate again is named "_s
                + quoted(QString::fromStdString(Contract::mainAppNotifierName(vendor.toStdString())))));
        if (vendor == black)
            Findings::note(settingsFile,
                text(u"with %1 the window of the CASB and the maintenance notice is black"_s.arg(black)));
        else if (vendor.trimmed().toUpper() == black)
            findings_.warning(
                settingsFile, text(u"%1 is not %2: no window is black"_s.arg(quoted(vendor), black)));
    }

    // --- logos

    QStringList filesOf(const QString &logo, const QDir &folder) const {
        QStringList files;
        for (const auto &[ending, scale] : imageFiles) {
            if (const auto name = logo + QLatin1String(ending); folder.exists(name))
                files << name;
        }
        return files;
    }

    void checkLogos() {
        static const QRegularExpression extension(u"\\.(png|jpg|svg)\\z"_s);
        const auto logo = setting(Key::AppLogo).remove(extension);
        if (logo.isEmpty() || logo == u"." || logo == u".." || logo.contains(u'/')
            || logo.contains(QChar())) {
            findings_.error(settingsFile, of(Key::AppLogo, quoted(logo) + u" is not the name of an image"_s));
            return;
        }
        const bool hasLogo = !filesOf(logo, folder_).isEmpty();
        const bool hasFormLogo = !filesOf(formLogo, folder_).isEmpty();
        if (logo == formLogo || !hasFormLogo) {
            checkLogo(logo, { header_, formHeader });
        } else {
            checkLogo(logo, { header_ });
            checkLogo(formLogo, { formHeader });
        }
        if (!hasLogo && !filesOf(logo, resources_).isEmpty())
            findings_.warning(settingsFile,
                of(Key::AppLogo,
                    u"there is no image %1 here: the agent's own logo stays"_s.arg(quoted(logo))));
        else if (!hasLogo)
            findings_.error(settingsFile,
                of(Key::AppLogo,
                    u"there is no image %1 (.png, @2x.png, @3x.png, .jpg or .svg)"_s.arg(quoted(logo))));
        else if (!hasFormLogo)
            Findings::note(logo + u".*"_s,
                u"also replaces %1, which the concurrent-session notice shows"_s.arg(formLogo));
    }

    void checkLogo(const QString &logo, const QList<QColor> &grounds) {
        const auto files = filesOf(logo, folder_);
        used_ << files;
        if (!files.isEmpty() && checkFiles(logo, files))
            checkVisible(logo, files.last().endsWith(u".svg"_s) ? files.last() : files.first(), grounds);
    }

    // Whether all can be drawn.
    bool checkFiles(const QString &logo, const QStringList &files) {
        std::optional<QSize> plain;
        bool hasFine = false;
        for (const auto &[ending, scale] : imageFiles) {
            const auto name = logo + QLatin1String(ending);
            if (!files.contains(name))
                continue;
            const auto image = drawable(name);
            if (!image)
                return false;
            const auto size = image->size();
            hasFine = hasFine || scale != 1;
            if (scale == 1 && !plain)
                plain = size;
            else if (plain && scale > 1 && size != *plain * scale)
                findings_.error(name,
                    u"is %1 x %2 pixels; %3 times the plain image is %4 x %5"_s.arg(size.width())
                        .arg(size.height())
                        .arg(scale)
                        .arg(plain->width() * scale)
                        .arg(plain->height() * scale));
        }
        if (plain)
            checkSize(logo, *plain, hasFine);
        return true;
    }

    // As the agent reads and draws it; nothing, and an error, where it would not.
    std::optional<Image> drawable(const QString &name) {
        const auto bytes = Formats::readFile(folder_.filePath(name).toStdString());
        if (!bytes) {
            findings_.error(name, u"cannot be read, or is larger than 16 MiB"_s);
            return std::nullopt;
        }
        const QByteArray data(bytes->data(), static_cast<int>(bytes->size()));
        auto image = Image::withData(data);
        if (!image)
            findings_.error(name,
                data.contains("<svg") ? u"the agent does not draw it: an SVG must hold no <image>, <use>, "
                                        "script, animation, entity or import"_s
                                      : u"is not an image that the agent can draw"_s);
        return image;
    }

    void checkSize(const QString &logo, const QSize &size, bool hasFine) {
        if (size.height() < logoBox.height())
            findings_.warning(logo,
                u"is %1 pixels high and drawn %2 high: it will be blurred"_s.arg(size.height())
                    .arg(logoBox.height()));
        if (size.width() * logoBox.height() > size.height() * logoBox.width())
            findings_.warning(
                logo, u"is so wide that it is drawn less than %1 pixels high"_s.arg(logoBox.height()));
        if (size.height() < 2 * logoBox.height() && !hasFine)
            findings_.warning(logo, u"has neither @2x.png nor .svg: it will be blurred on a fine screen"_s);
    }

    // How much of the logo can be told from the headers it stands on.
    void checkVisible(const QString &logo, const QString &file, const QList<QColor> &grounds) {
        const auto picture = drawable(file)->scaledToFit(logoBox, 1).convertToFormat(QImage::Format_ARGB32);
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
            findings_.error(logo, u"nothing of it is drawn: it is empty"_s);
            return;
        }
        for (const auto &ground : grounds) {
            double hidden = 0;
            for (const auto &[color, amount] : inks)
                hidden += Contrast::ratio(QColor(color), ground) < minContrast ? amount : 0;
            if (hidden > ink / 2)
                findings_.warning(logo,
                    u"%1 percent of it has a contrast below %2 : 1 with %3, %4, and is hard to see"_s
                        .arg(qRound(100 * hidden / ink))
                        .arg(minContrast)
                        .arg(ground == formHeader ? u"the header of the concurrent-session notice"_s
                                                  : u"the header"_s,
                            ground.name().toUpper()));
        }
    }

    // --- languages

    void checkLanguages() {
        const QDir english(resources_.filePath(u"en.lproj"_s));
        for (const auto &name : folder_.entryList({ u"*.lproj"_s }, QDir::Dirs)) {
            used_ << name;
            if (const auto fault = faultOfLanguage(name.section(u'.', 0, 0)); !fault.isEmpty()) {
                findings_.error(name, fault);
                continue;
            }
            const QDir language(folder_.filePath(name));
            const bool isKnown = resources_.exists(name);
            if (!isKnown)
                Findings::note(name, u"is a language that the agent does not have yet"_s);
            for (const auto &table : tableNames()) {
                if (language.exists(table) || !isKnown)
                    checkTable(language, table, keysOf(english, table), findings_);
            }
            for (const auto &file : language.entryList(QDir::AllEntries | QDir::NoDotAndDotDot)) {
                if (!tableNames().contains(file))
                    findings_.warning(name + u'/' + file, u"is not used"_s + suggestion(file, tableNames()));
            }
        }
    }

    // --- Info.plist

    void checkInformation() {
        used_ << informationFile;
        if (!folder_.exists(informationFile))
            return;
        const auto list = readList(folder_, informationFile);
        const auto own = readList(contents_, informationFile);
        if (!list || !own) {
            findings_.error(informationFile, unreadable);
            return;
        }
        QStringList ownKeys;
        for (const auto &entry : *own)
            ownKeys << QString::fromStdString(entry.first);
        for (const auto &[name, value] : *list) {
            const auto agentValue = own->find(name);
            const auto key = QString::fromStdString(name);
            if (agentValue == own->end())
                findings_.error(informationFile, u"unknown key "_s + quoted(key) + suggestion(key, ownKeys));
            else if (name == Key::timeOutKey)
                checkTimeOut(value);
            else if (value.index() != agentValue->second.index())
                findings_.error(
                    informationFile, key + u": has another type than in the agent's Info.plist"_s);
            else if (name == "CFBundleExecutable" && value != agentValue->second)
                findings_.error(informationFile, key + u": must stay as it is"_s);
            else if (name == "CFBundleDevelopmentRegion")
                checkRegion(QString::fromStdString(std::get<std::string>(value)) + u".lproj"_s);
        }
    }

    void checkRegion(const QString &folder) {
        if (!resources_.exists(folder) && !folder_.exists(folder))
            findings_.error(informationFile, u"CFBundleDevelopmentRegion: there is no folder "_s + folder);
    }

    void checkTimeOut(const Formats::PropertyValue &value) {
        const auto *seconds = std::get_if<std::int64_t>(&value);
        if (!seconds)
            findings_.error(informationFile,
                of(Key::timeOutKey, u"must be an integer (default: %1)"_s.arg(Key::defaultTimeOut)));
        else if (*seconds <= 0)
            findings_.error(informationFile,
                of(Key::timeOutKey, u"is %1: the agent would end as soon as it starts"_s.arg(*seconds)));
        else if (*seconds < shortTimeOut)
            findings_.warning(informationFile,
                of(Key::timeOutKey,
                    u"is %1: the notices that count 30 seconds are cut short"_s.arg(*seconds)));
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
