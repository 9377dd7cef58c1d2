#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>

#include <optional>

/// The string tables of language folders, in the text form `"key" = "value";` (UTF-8, or UTF-16 with a byte
/// order mark) or as a property list.
namespace StringTable {

using Table = QHash<QString, QString>;

/// Nothing when the text is broken anywhere: a table is taken whole or not at all. Of a key that stands twice
/// the last value counts.
std::optional<Table> parse(const QByteArray &bytes);

} // namespace StringTable
