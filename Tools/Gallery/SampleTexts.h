#pragma once

#include <QString>

/// What a client's message would say in one language. The fixed texts of a notice come from the bundle; these
/// do not.
struct SampleTexts {
    QString head;
    QString body;
    QString upload; ///< the activity's name
    QString disconnect; ///< by policy, soon
    QString disconnected;
    QString sessionHead;
    QString sessionBody;
    QString maintenance;

    /// English when Samples/ has no file of that language. A file that lacks a text ends the program.
    static SampleTexts in(const QString &language);
};
