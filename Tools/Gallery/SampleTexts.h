#pragma once

#include <QString>

/// What a client's message would say in one language. The fixed texts of a notice come from the bundle; these
/// do not.
struct SampleTexts {
    QString head;
    QString body;
    QString upload; ///< the activity's name
    QString disconnect;
    QString maintenance;

    /// English when there are none in that language.
    static SampleTexts in(const QString &language);
};
