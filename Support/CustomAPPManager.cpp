#include "Support/CustomAPPManager.h"

#include "Platform/Bundle.h"
#include "Platform/PropertyList.h"

#include <array>

namespace {

struct Setting {
    const char *key;
    QString *value;
    const char *defaultValue;
};

// In the order in which they are read.
const std::array settings {
    Setting { "AppLogo", &CustomAPPManager::AppLogo, "ic_zelvikLogo" },
    Setting { "Vendor", &CustomAPPManager::Vendor, "zelvik" },
    Setting { "LogFolderName", &CustomAPPManager::LogFolderName, "zelvik" },
    Setting { "globalAppViewBackgroundColor", &CustomAPPManager::globalAppViewBackgroundColor, "#2A292F" },
};

bool isString(const QVariant &value) {
    return value.metaType().id() == QMetaType::QString;
}

QString logFilePathFor(const QString &folder) {
    return QStringLiteral("/private/var/log/") + folder + u'/' + folder + QStringLiteral("_Tevanic.log");
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
    const auto path = bundle.pathForResource(QStringLiteral("Application_Shared"), QStringLiteral("plist"));
    const auto list = path ? PropertyList::read(*path) : std::nullopt;
    if (!list || list->metaType().id() != QMetaType::QVariantMap)
        return;
    const auto dictionary = list->toMap();
    for (const auto &setting : settings) {
        const auto value = dictionary.value(QLatin1String(setting.key));
        *setting.value = isString(value) ? value.toString() : QString::fromLatin1(setting.defaultValue);
    }
    logFilePath = logFilePathFor(LogFolderName);
}

const QColor &CustomAPPManager::noticeAccentColor() {
    static const auto color = QColor::fromRgbF(30 / 255.0F, 34 / 255.0F, 52 / 255.0F, 1.0F);
    return color;
}

const QString &CustomAPPManager::mainAppNotifierName() {
    static const QString name = Vendor + QStringLiteral("_webSocketToMainAppNotifier");
    return name;
}
