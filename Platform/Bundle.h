#pragma once

#include <QString>
#include <QVariant>

#include <memory>
#include <optional>

/// A bundle: a folder with resources, property list and string tables. Main thread only.
class Bundle {
public:
    virtual ~Bundle() = default;

    /// The full path of the resource, or nothing when there is none. A name is a name, never a path: one
    /// that is empty or holds a slash or a NUL, and ".." and ".", name no resource.
    virtual std::optional<QString> pathForResource(const QString &name, const QString &type) const = 0;

    /// The value in the information property list: an integer (qlonglong) or a QString. An invalid QVariant
    /// when there is none or it is of another kind.
    virtual QVariant objectForInfoDictionaryKey(const QString &key) const = 0;

    /// The text of a key in a string table, in the bundle's language. A key that the table lacks, or a table
    /// that is missing or broken, gives `value` or, when that is empty, the key.
    /// @param table  empty for the table "Localizable"
    virtual QString localizedStringForKey(
        const QString &key, const QString &value, const QString &table) const = 0;

    /// The code of the language that lookups come from (for example "pt-BR"); empty when they come from no
    /// language folder.
    virtual QString localization() const = 0;

    /// Opens the folder at a path as a bundle of its own; nothing when it cannot be opened.
    virtual std::unique_ptr<Bundle> bundleWithPath(const QString &path) const = 0;
};
