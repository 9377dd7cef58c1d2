#pragma once

#include "Platform/Qt/FileBundle.h"

#include <QTemporaryDir>
#include <QVariantMap>

#include <map>

/// An application bundle in a folder of its own, empty at first, that goes with this object. What is written
/// takes effect at the next look at the bundle.
class TemporaryBundle {
public:
    TemporaryBundle();

    const FileBundle &bundle() const { return bundle_; }

    /// The folder `Contents`.
    QString contents() const { return folder_.path(); }
    QString resources() const { return folder_.path() + QStringLiteral("/Resources"); }

    /// Writes Info.plist.
    void setInfo(const QVariantMap &info);
    /// Writes Application_Shared.plist.
    void setSettings(const QVariantMap &settings);
    void removeSettings();

    /// Writes a string table into the language folder of that code.
    void addStrings(const QString &code, const std::map<QString, QString> &strings,
        const QString &table = QStringLiteral("Localizable"));

    /// Writes a picture of one colour, `name.png`.
    void addImage(const QString &name, const QColor &color);

    /// Writes a file; its folder is made.
    /// @param path  below the resources
    void writeResource(const QString &path, const QByteArray &bytes);

    /// The user's own languages; none at first.
    void setPreferredLanguages(const QStringList &languages) { preferredLanguages_ = languages; }

private:
    QTemporaryDir folder_;
    QStringList preferredLanguages_;
    FileBundle bundle_;
};

/// A property list in its XML form: strings, booleans, integers, reals, data, dates, lists and dictionaries.
QByteArray propertyListBytes(const QVariant &value);
