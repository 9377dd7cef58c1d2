#include "Tools/Gallery/TableCheck.h"

#include "Formats/File.h"
#include "Formats/StringTable.h"

#include <QRegularExpression>
#include <QStringList>

#include <optional>

namespace {

const auto unitKey = QStringLiteral("seconds");
const auto countdownKey = QStringLiteral("This window will auto close in");
const auto countdownKeyWithBlank = countdownKey + u' ';

const QRegularExpression &directionMark() {
    static const QRegularExpression expression(
        QStringLiteral("[\\x{061C}\\x{200E}\\x{200F}\\x{202A}-\\x{202E}\\x{2066}-\\x{2069}]"));
    return expression;
}

const QRegularExpression &unreadable() {
    static const QRegularExpression expression(
        QStringLiteral("[\\x{FFFD}\\x{00}-\\x{08}\\x{0B}-\\x{1F}\\x{7F}]"));
    return expression;
}

// Nothing is ever filled in: %@, %1$d, %ld, %1 and {0}, {name} would be shown.
const QRegularExpression &placeholder() {
    static const QRegularExpression expression(
        QStringLiteral("%(?:\\d+\\$)?[-+#0]*[\\d*]*(?:\\.\\d+)?(?:hh|h|ll|l|q|z|t|j)?"
                       "[@dDiuUxXoOfFeEgGcCsSpaAn]|%L?\\d+|\\{[^{}]*\\}"));
    return expression;
}

std::optional<Formats::StringTable> read(const QDir &folder, const QString &table) {
    const auto bytes = Formats::readFile(folder.filePath(table).toStdString());
    return bytes ? Formats::parseStringTable(*bytes) : std::nullopt;
}

QString codePoint(const QString &text) {
    return QStringLiteral("U+%1").arg(text.toUcs4().front(), 4, 16, QLatin1Char('0')).toUpper();
}

// Where the number stands before the unit; in all other languages the line ends in the number.
bool namesUnitLast(const QString &base) {
    return base == u"en" || base == u"ja" || base == u"ko" || base == u"zh";
}

bool isWithoutBlanks(const QString &base) {
    return base == u"ja" || base == u"th" || base == u"zh";
}

/// One text of one table, checked.
class TextCheck {
public:
    TextCheck(QString where, QString language, Findings &findings)
        : where_(std::move(where))
        , language_(std::move(language))
        , base_(language_.section(u'-', 0, 0))
        , findings_(findings) { }

    void check(const QString &key, const QString &value) {
        key_ = key;
        if (language_ == u"en") {
            if (value != key)
                error(QStringLiteral("is not the key but \"%1\"").arg(value));
            return;
        }
        if (key == unitKey && !namesUnitLast(base_)) {
            if (!value.isEmpty())
                warning(QStringLiteral("must be empty: let \"%1\" name the unit").arg(countdownKey));
            return;
        }
        if (value.trimmed().isEmpty()) {
            error(QStringLiteral("is empty"));
            return;
        }
        if (value == key && key.count(u' ') >= 2)
            error(QStringLiteral("is not translated"));
        for (const auto *pattern : { &directionMark(), &unreadable() }) {
            if (const auto found = pattern->match(value); found.hasMatch())
                error(QStringLiteral("holds the character ") + codePoint(found.captured()));
        }
        if (const auto found = placeholder().match(value); found.hasMatch())
            error(QStringLiteral("holds the placeholder ") + found.captured());
        checkEdges(value);
    }

private:
    // Texts are joined as they stand, so that a blank at an end shows.
    void checkEdges(const QString &value) {
        if (value.front().isSpace())
            warning(QStringLiteral("begins with a blank"));
        const bool endsWithBlank = value.back().isSpace();
        if (key_ != countdownKeyWithBlank) {
            if (endsWithBlank)
                warning(QStringLiteral("ends with a blank"));
        } else if (endsWithBlank ? value.size() > 1 && value[value.size() - 2].isSpace()
                                 : !isWithoutBlanks(base_)) {
            warning(QStringLiteral("must end with one blank, as the key does"));
        }
    }

    void error(const QString &text) { findings_.error(where_, ofKey(text)); }
    void warning(const QString &text) { findings_.warning(where_, ofKey(text)); }
    QString ofKey(const QString &text) const {
        return QStringLiteral("the value of \"%1\" %2").arg(key_, text);
    }

    QString where_;
    QString language_;
    QString base_;
    QString key_;
    Findings &findings_;
};

} // namespace

QString faultOfLanguage(const QString &code) {
    static const QRegularExpression form(QStringLiteral("\\A[A-Za-z]{2,3}([-_][A-Za-z0-9]+)*\\z"));
    if (!form.match(code).hasMatch())
        return QStringLiteral("is not named after a language, such as de.lproj or pt-BR.lproj");
    auto parts = QString(code).replace(u'_', u'-').toLower().split(u'-');
    for (int i = 1; i < parts.size(); ++i) {
        if (parts[i].size() == 2)
            parts[i] = parts[i].toUpper();
        else if (parts[i].size() == 4)
            parts[i][0] = parts[i][0].toUpper();
    }
    const auto usual = parts.join(u'-');
    return usual == code ? QString() : QStringLiteral("must be spelled %1.lproj").arg(usual);
}

QStringList tableNames() {
    return { QStringLiteral("Localizable.strings"), QStringLiteral("Main.strings") };
}

QStringList keysOf(const QDir &folder, const QString &table) {
    QStringList keys;
    for (const auto &[key, value] : read(folder, table).value_or(Formats::StringTable()))
        keys << QString::fromStdString(key);
    return keys;
}

void checkTable(const QDir &folder, const QString &table, const QStringList &wanted, Findings &findings) {
    const auto where = folder.dirName() + u'/' + table;
    if (!folder.exists(table)) {
        findings.error(where, QStringLiteral("is missing"));
        return;
    }
    const auto texts = read(folder, table);
    if (!texts) {
        findings.error(where, QStringLiteral("is not a string table that the agent can read"));
        return;
    }
    QStringList missing = wanted;
    QStringList unknown;
    TextCheck check(where, folder.dirName().section(u'.', 0, 0), findings);
    for (const auto &[keyBytes, value] : *texts) {
        const auto key = QString::fromStdString(keyBytes);
        if (!missing.removeOne(key))
            unknown << key;
        check.check(key, QString::fromStdString(value));
    }
    for (const auto &key : unknown) {
        const auto meant = suggestion(key, missing);
        const auto text = QStringLiteral("unknown key \"%1\"").arg(key);
        if (meant.isEmpty()) {
            findings.warning(where, text);
            continue;
        }
        findings.error(where, text + meant);
        missing.removeOne(meant.section(u'"', 1, -2));
    }
    for (const auto &key : missing)
        findings.error(where, QStringLiteral("the key \"%1\" is missing").arg(key));
    if (const auto together = QStringList { countdownKey, countdownKeyWithBlank };
        texts->contains(together[0].toStdString()) && texts->contains(together[1].toStdString())) {
        const auto text = [&texts](const QString &key) {
            return QString::fromStdString(texts->find(key.toStdString())->second).trimmed();
        };
        if (text(together[0]) != text(together[1]))
            findings.warning(where,
                QStringLiteral("\"%1\" with and without its blank have different values").arg(countdownKey));
    }
}

void checkTables(const QDir &resources, const QDir &wanted, Findings &findings) {
    const auto languages = resources.entryList({ QStringLiteral("*.lproj") }, QDir::Dirs);
    for (const auto &table : tableNames()) {
        QStringList everywhere;
        for (const auto &language : languages)
            everywhere << keysOf(QDir(resources.filePath(language)), table);
        auto keys = keysOf(wanted, table);
        for (const auto &key : QStringList(keys)) {
            if (everywhere.contains(key))
                continue;
            findings.error(table, QStringLiteral("no language has the key \"%1\"").arg(key));
            keys.removeOne(key);
        }
        everywhere.removeDuplicates();
        for (const auto &key : everywhere) {
            if (keys.contains(key)
                || !keysOf(QDir(resources.filePath(QStringLiteral("en.lproj"))), table).contains(key))
                continue;
            findings.warning(table, QStringLiteral("the agent does not use the key \"%1\"").arg(key));
            keys << key;
        }
        for (const auto &language : languages)
            checkTable(QDir(resources.filePath(language)), table, keys, findings);
    }
    for (const auto &language : languages) {
        if (const auto fault = faultOfLanguage(language.section(u'.', 0, 0)); !fault.isEmpty())
            findings.error(language, fault);
    }
}
