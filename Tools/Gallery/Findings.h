#pragma once

#include <QStringList>

/// What a check found, a line on standard output each, as soon as it is found.
class Findings {
public:
    /// What has to be mended.
    void error(const QString &where, const QString &text);
    /// What may be meant like this.
    void warning(const QString &where, const QString &text);
    /// What follows from the settings.
    static void note(const QString &where, const QString &text);

    int errors() const { return errors_; }
    int warnings() const { return warnings_; }

private:
    int errors_ = 0;
    int warnings_ = 0;
};

/// `; did you mean "Vendor"?` when one of the words is much like the given one, else nothing.
QString suggestion(const QString &word, const QStringList &words);
