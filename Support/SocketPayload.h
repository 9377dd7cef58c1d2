#pragma once

#include <QString>
#include <QStringList>

#include <cstdint>

/// A parsed CASB notice, copied wherever it is passed.
struct SocketPayload {
    QString module; ///< the header title: head text, " by ", module text
    QString information; ///< the body text
    std::int64_t timeout = 0; ///< seconds of the countdown
    QStringList titleLabels; ///< the name of every `md` entry, in document order
    QStringList details; ///< the value of every `md` entry, in document order
    QString activityUrl; ///< called when the window closes

    bool operator==(const SocketPayload &) const = default;
};
