#include "Tools/Gallery/Findings.h"

#include <QTextStream>

#include <algorithm>
#include <numeric>
#include <vector>

namespace {

void print(const char *kind, const QString &where, const QString &text) {
    QTextStream(stdout) << kind << ": " << where << ": " << text << '\n';
}

// Letters to insert, delete or replace.
int distance(const QString &from, const QString &to) {
    std::vector<int> row(static_cast<std::size_t>(to.size()) + 1);
    std::iota(row.begin(), row.end(), 0);
    for (const auto letter : from) {
        int diagonal = row[0]++;
        for (std::size_t i = 1; i < row.size(); ++i) {
            const int above = row[i];
            const int changed = diagonal + (letter == to[static_cast<int>(i) - 1] ? 0 : 1);
            row[i] = std::min({ above + 1, row[i - 1] + 1, changed });
            diagonal = above;
        }
    }
    return row.back();
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

QString suggestion(const QString &word, const QStringList &words) {
    for (const auto &candidate : words) {
        if (distance(word.toLower(), candidate.toLower()) <= 1 + candidate.size() / 5)
            return QStringLiteral("; did you mean \"%1\"?").arg(candidate);
    }
    return {};
}
