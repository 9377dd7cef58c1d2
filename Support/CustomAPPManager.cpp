#include "Support/CustomAPPManager.h"

#include "Contract/Brand.h"
#include "Contract/Bus.h"
#include "Formats/File.h"
#include "Formats/PropertyList.h"
#include "Platform/Bundle.h"

#include <QFile>

#include <array>

namespace {

struct Setting {
    std::string_view key;
    QString *value;
    std::string_view defaultValue;
};

// In the order in which they are read.
const std::array settings {
    Setting { Contract::Brand::AppLogo, &CustomAPPManager::AppLogo, Contract::Brand::defaultAppLogo },
    Setting { Contract::Brand::Vendor, &CustomAPPManager::Vendor, Contract::Brand::defaultVendor },
    Setting { Contract::Brand::LogFolderName, &CustomAPPManager::LogFolderName,
        Contract::Brand::defaultLogFolderName },
    Setting { Contract::Brand::globalAppViewBackgroundColor, &CustomAPPManager::globalAppViewBackgroundColor,
        Contract::Brand::defaultBackgroundColor },
};

bool isString(const QVariant &value) {
    return value.metaType().id() == QMetaType::QString;
}

QString textOf(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

} // namespace

CustomAPPManager &CustomAPPManager::sharedInstance() {
    static CustomAPPManager instance;
    return instance;
}

bool CustomAPPManager::flag(QLatin1String key) {
    const auto value = payload.value(key);
    return value.metaType().id() == QMetaType::Bool && value.toBool();
}

QString CustomAPPManager::string(QLatin1String key) {
    return optionalString(key).value_or(QString());
}

std::optional<QString> CustomAPPManager::optionalString(QLatin1String key) {
    const auto value = payload.value(key);
    return isString(value) ? std::optional(value.toString()) : std::nullopt;
}

std::optional<QByteArray> CustomAPPManager::data(QLatin1String key) {
    const auto value = payload.value(key);
    return value.metaType().id() == QMetaType::QByteArray ? std::optional(value.toByteArray()) : std::nullopt;
}

void CustomAPPManager::loadSettings(const Bundle &bundle) {
    const auto path = bundle.pathForResource(
        textOf(Contract::Brand::settingsResource), textOf(Contract::Brand::settingsType));
    const auto bytes = path ? Formats::readFile(QFile::encodeName(*path).toStdString()) : std::nullopt;
    const auto list = bytes ? Formats::parsePropertyList(*bytes) : std::nullopt;
    if (!list)
        return;
    for (const auto &setting : settings) {
        const auto value = Formats::stringOf(*list, setting.key);
        *setting.value = textOf(value ? std::string_view(*value) : setting.defaultValue);
    }
    logFilePath = textOf(Contract::Brand::logFilePath(LogFolderName.toStdString()));
}

const QColor &CustomAPPManager::noticeAccentColor() {
    static const auto color = QColor::fromRgbF(30 / 255.0F, 34 / 255.0F, 52 / 255.0F, 1.0F);
    return color;
}

const QString &CustomAPPManager::mainAppNotifierName() {
    static const QString name = textOf(Contract::mainAppNotifierName(Vendor.toStdString()));
    return name;
}
