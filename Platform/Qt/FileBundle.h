#pragma once

#include "Platform/Bundle.h"

#include <QStringList>

#include <functional>

/// A bundle that is a folder in the file system: an application's `Contents`, or a language folder opened as
/// a bundle of its own. Everything is read afresh at each call; nothing is cached.
class FileBundle final : public Bundle {
public:
    /// The bundle around the running executable, found from the executable's own path.
    static FileBundle mainBundle();

    /// An application bundle.
    /// @param contents             the folder `Contents`
    /// @param preferredLanguages   the user's languages, the dearest first; asked at each lookup
    FileBundle(const QString &contents, std::function<QStringList()> preferredLanguages);

    /// The folder of the bundle's own libraries.
    QString frameworksPath() const { return contents_ + QStringLiteral("/Frameworks"); }

    std::optional<QString> pathForResource(const QString &name, const QString &type) const override;
    QVariant objectForInfoDictionaryKey(const QString &key) const override;
    QString localizedStringForKey(
        const QString &key, const QString &value, const QString &table) const override;
    QString localization() const override;
    std::unique_ptr<Bundle> bundleWithPath(const QString &path) const override;

private:
    std::optional<QString> languageFolder() const;

    QString contents_;
    QString resources_;
    std::function<QStringList()> preferredLanguages_;
    bool isLanguageFolder_ = false; ///< whose tables stand in the folder itself
};

/// The user's languages as the desktop session gives them.
QStringList systemLanguages();
