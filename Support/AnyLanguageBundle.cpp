#include "Support/AnyLanguageBundle.h"

void AnyLanguageBundle::switchLanguage(const QString &code) {
    overridePath_ = mainBundle_.pathForResource(code, QStringLiteral("lproj"));
}

std::unique_ptr<Bundle> AnyLanguageBundle::overridingBundle() const {
    return overridePath_ ? mainBundle_.bundleWithPath(*overridePath_) : nullptr;
}

QString AnyLanguageBundle::localizedStringForKey(
    const QString &key, const QString &value, const QString &table) const {
    const auto overriding = overridingBundle();
    const Bundle &source = overriding ? *overriding : mainBundle_;
    return source.localizedStringForKey(key, value, table);
}

QString AnyLanguageBundle::localization() const {
    const auto overriding = overridingBundle();
    return overriding ? overriding->localization() : mainBundle_.localization();
}

std::optional<QString> AnyLanguageBundle::pathForResource(const QString &name, const QString &type) const {
    return mainBundle_.pathForResource(name, type);
}

QVariant AnyLanguageBundle::objectForInfoDictionaryKey(const QString &key) const {
    return mainBundle_.objectForInfoDictionaryKey(key);
}

std::unique_ptr<Bundle> AnyLanguageBundle::bundleWithPath(const QString &path) const {
    return mainBundle_.bundleWithPath(path);
}
