#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>

#include <optional>

/// Reads property lists, XML and binary: dictionaries become QVariantMap, arrays QVariantList, strings
/// QString, booleans bool, integers qlonglong (qulonglong past its range), reals double, data QByteArray,
/// dates QDateTime.
namespace PropertyList {

/// More bytes than this are not read.
inline constexpr qint64 largestFile = 16 * 1024 * 1024;

/// One that is nested deeper, or holds more, is not one that anybody wrote.
inline constexpr int deepest = 64;
inline constexpr int mostObjects = 1'000'000;

inline constexpr qint64 secondsFrom1970To2001 = 978307200;

std::optional<QVariant> parse(const QByteArray &bytes);

/// Nothing when the file is missing, is no regular file, is too large or is no property list.
std::optional<QVariant> read(const QString &path);

/// The bytes of a regular file of at most `largestFile` bytes.
std::optional<QByteArray> readBytes(const QString &path);

} // namespace PropertyList
