#pragma once

#include "Platform/Bundle.h"

/// The main bundle as the notices see it: its texts come from the language folder that the latest message
/// named, and from the user's own languages when the application has no such folder. Each lookup opens the
/// folder anew, so that a switch between two lookups takes effect at once. Main thread only.
class AnyLanguageBundle final : public Bundle {
public:
    /// @param mainBundle  outlives this one
    explicit AnyLanguageBundle(const Bundle &mainBundle)
        : mainBundle_(mainBundle) { }

    /// Redirects the lookups to the application's folder for this code ("de"), or, when it has none, back to
    /// the user's own languages.
    void switchLanguage(const QString &code);

    std::optional<QString> pathForResource(const QString &name, const QString &type) const override;
    QVariant objectForInfoDictionaryKey(const QString &key) const override;
    QString localizedStringForKey(
        const QString &key, const QString &value, const QString &table) const override;
    QString localization() const override;
    std::unique_ptr<Bundle> bundleWithPath(const QString &path) const override;

private:
    std::unique_ptr<Bundle> overridingBundle() const;

    const Bundle &mainBundle_;
    std::optional<QString> overridePath_;
};
