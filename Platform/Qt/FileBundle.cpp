#include "Platform/Qt/FileBundle.h"

#include "Formats/File.h"
#include "Formats/PropertyList.h"
#include "Formats/StringTable.h"
#include "Platform/ExecutablePath.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocale>

#include <utility>

namespace {

constexpr QLatin1String languageFolderType("lproj");

bool isResourceName(const QString &name) {
    return !name.isEmpty() && name != QLatin1String(".") && name != QLatin1String("..")
        && !name.contains(u'/') && !name.contains(QChar(u'\0'));
}

// The exact code, then the language with its script, then the language alone.
QStringList candidates(const QString &code) {
    QStringList codes { code };
    const QLocale locale(code);
    if (locale.language() == QLocale::C)
        return codes;
    const auto language = QLocale::languageToCode(locale.language());
    if (locale.script() != QLocale::AnyScript)
        codes << language + u'-' + QLocale::scriptToCode(locale.script());
    codes << language;
    return codes;
}

std::optional<std::string> readFile(const QString &path) {
    return Formats::readFile(QFile::encodeName(path).toStdString());
}

} // namespace

QStringList systemLanguages() {
    return QLocale::system().uiLanguages();
}

FileBundle FileBundle::mainBundle() {
    // <bundle>/Contents/<system>/NoticeAgent
    const auto contents = QDir::cleanPath(QFileInfo(executablePath()).path() + QLatin1String("/.."));
    return FileBundle(contents, systemLanguages);
}

FileBundle::FileBundle(const QString &contents, std::function<QStringList()> preferredLanguages)
    : contents_(contents)
    , resources_(contents + QLatin1String("/Resources"))
    , preferredLanguages_(std::move(preferredLanguages)) { }

std::optional<QString> FileBundle::pathForResource(const QString &name, const QString &type) const {
    if (!isResourceName(name))
        return std::nullopt;
    const auto path = resources_ + u'/' + name + (type.isEmpty() ? QString() : u'.' + type);
    return QFileInfo::exists(path) ? std::optional(path) : std::nullopt;
}

QVariant FileBundle::objectForInfoDictionaryKey(const QString &key) const {
    const auto bytes = readFile(contents_ + QLatin1String("/Info.plist"));
    const auto list = bytes ? Formats::parsePropertyList(*bytes) : std::nullopt;
    if (!list)
        return {};
    const auto entry = list->find(key.toStdString());
    if (entry == list->end())
        return {};
    if (const auto *integer = std::get_if<std::int64_t>(&entry->second))
        return QVariant::fromValue(static_cast<qlonglong>(*integer));
    const auto *text = std::get_if<std::string>(&entry->second);
    return text ? QVariant(QString::fromStdString(*text)) : QVariant();
}

std::optional<QString> FileBundle::languageFolder() const {
    if (isLanguageFolder_)
        return contents_;
    QStringList codes;
    const auto languages = preferredLanguages_();
    for (const auto &code : languages)
        codes << candidates(code);
    codes << objectForInfoDictionaryKey(QStringLiteral("CFBundleDevelopmentRegion")).toString();
    for (const auto &code : std::as_const(codes)) {
        if (auto folder = pathForResource(code, languageFolderType))
            return folder;
    }
    return std::nullopt;
}

QString FileBundle::localizedStringForKey(
    const QString &key, const QString &value, const QString &table) const {
    auto fallback = value.isEmpty() ? key : value;
    const auto folder = languageFolder();
    const auto name = table.isEmpty() ? QStringLiteral("Localizable") : table;
    if (!folder || !isResourceName(name))
        return fallback;
    const auto bytes = readFile(*folder + u'/' + name + QLatin1String(".strings"));
    const auto strings = bytes ? Formats::parseStringTable(*bytes) : std::nullopt;
    if (!strings)
        return fallback;
    const auto entry = strings->find(key.toStdString());
    return entry == strings->end() ? fallback : QString::fromStdString(entry->second);
}

QString FileBundle::localization() const {
    const auto folder = languageFolder();
    return folder ? QFileInfo(*folder).completeBaseName() : QString();
}

std::unique_ptr<Bundle> FileBundle::bundleWithPath(const QString &path) const {
    const QFileInfo folder(path);
    if (!folder.isDir() || !folder.isReadable() || !folder.isExecutable())
        return nullptr;
    auto bundle = std::make_unique<FileBundle>(path, nullptr);
    bundle->isLanguageFolder_ = true;
    return bundle;
}
