#pragma once

#include <QString>
#include <QVariant>

/// The printed form of a payload for the log: keys and values in the keys' order; binary data as its size.
QString payloadDescription(const QVariantMap &payload);
