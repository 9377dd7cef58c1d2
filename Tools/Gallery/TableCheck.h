#pragma once

#include "Tools/Gallery/Findings.h"

#include <QDir>
#include <QString>

/// What is wrong with the language code of a folder's name, or nothing.
QString faultOfLanguage(const QString &code);

/// Reads a table of a language folder as the agent does, and reports what is wrong with it.
/// @param folder   the language folder, `CODE.lproj`
/// @param table    the table's file name
/// @param wanted   the keys that it must hold
void checkTable(const QDir &folder, const QString &table, const QStringList &wanted, Findings &findings);

/// The keys of a table; none when it cannot be read.
QStringList keysOf(const QDir &folder, const QString &table);

/// The names of the tables that every language has.
QStringList tableNames();

/// Checks every language folder.
/// @param wanted  a folder whose tables hold the keys that the agent asks for
void checkTables(const QDir &resources, const QDir &wanted, Findings &findings);
