#include "Tools/Gallery/Findings.h"

#include <QTextStream>

namespace {

void print(const char *kind, const QString &where, const QString &text) {
    QTextStream(stdout) << kind << ": " << where << ": " << text << '\n';
}

} // namespace

void Findings::error(const QString &where, const QString &text) {
    ++errors_;
    print("error", where, text);
}

void Findings::warning(const QString &where, const QString &text) {
    ++warnings_;
    print("warning", where, text);
}

void Findings::note(const QString &where, const QString &text) {
    print("note", where, text);
}
