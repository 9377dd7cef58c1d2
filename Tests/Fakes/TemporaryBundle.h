#pragma once

#include "Tests/Platform/RawBundle.h"

#include <QVariantMap>

#include <map>

/// An application bundle whose files are written from values. What is written takes effect at the next look
/// at the bundle.
class TemporaryBundle : public RawBundle {
public:
    const FileBundle &bundle() const { return bundle_; }

    /// Writes Info.plist, of texts, booleans and numbers.
    void setInfo(const QVariantMap &info);
    /// Writes Application_Shared.plist.
    void setSettings(const QVariantMap &settings);
    void removeSettings();

    /// Writes a string table into the language folder of that code.
    void addStrings(const QString &code, const std::map<QString, QString> &strings,
        const QString &table = QStringLiteral("Localizable"));

    /// Writes a picture of one colour, `name.png`.
    void addImage(const QString &name, const QColor &color);

    /// The user's own languages; none at first.
    void setPreferredLanguages(const QStringList &languages) { preferredLanguages_ = languages; }

private:
    QStringList preferredLanguages_;
    FileBundle bundle_ { contents(), [this] { return preferredLanguages_; } };
};
