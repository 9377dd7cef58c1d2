#pragma once

#include <QByteArray>
#include <QVariant>

#include <optional>

/// The binary form of a property list ("bplist00"), read with everything bounded: how deep it goes, and how
/// much it makes of itself by naming one object many times.
namespace BinaryPropertyList {

/// Whether the bytes begin as this form does.
bool isIntroducedBy(const QByteArray &bytes);

/// Values as `PropertyList` has them. Nothing when anything in it is broken.
std::optional<QVariant> parse(const QByteArray &bytes);

} // namespace BinaryPropertyList
