#include "Tools/Gallery/TableCheck.h"

#include "Formats/File.h"
#include "Formats/StringTable.h"

#include <QRegularExpression>
#include <QStringList>

#include <optional>

using namespace Qt::StringLiterals;

namespace {

const auto unitKey = u"seconds"_s;
const auto countdownKey = u"This window will auto close in"_s;
const auto countdownKeyWithBlank = countdownKey + u' ';

// Marks that turn the direction of the text, control characters, and what stands for no character.
const QRegularExpression unwanted(u"[\\x{061C}\\x{200E}\\x{200F}\\x{202A}-\\x{202E}\\x{2066}-\\x{2069}"
                                  "\\x{FFFD}\\x{00}-\\x{08}\\x{0B}-\\x{1F}\\x{7F}]"_s);

// Nothing is ever filled in: %@, %1$d, %ld, %1 and {0}, {name} would be shown.
const QRegularExpression placeholder(u"%(?:\\d+\\$)?[-+#0]*[\\d*]*(?:\\.\\d+)?(?:hh|h|ll|l|q|z|t|j)?"
                                     "[@dDiuUxXoOfFeEgGcCsSpaAn]|%L?\\d+|\\{[^{}]*\\}"_s);

std::optional<Formats::StringTable> read(const QDir &folder, const QString &table) {
    const auto bytes = Formats::readFile(folder.filePath(table).toStdString());
    return bytes ? Formats::parseStringTable(*bytes) : std::nullopt;
}

QString codePoint(const QString &text) {
    return u"U+%1"_s.arg(text.toUcs4().front(), 4, 16, QLatin1Char('0')).toUpper();
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
                error(u"is not the key but \"%1\""_s.arg(value));
            return;
        }
        if (key == unitKey && !namesUnitLast(base_)) {
            if (!value.isEmpty())
                warning(u"must be empty: let \"%1\" name the unit"_s.arg(countdownKey));
            return;
        }
        if (value.trimmed().isEmpty()) {
            error(u"is empty"_s);
            return;
        }
        if (value == key && key.count(u' ') >= 2)
            error(u"is not translated"_s);
        if (const auto found = unwanted.match(value); found.hasMatch())
            error(u"holds the character "_s + codePoint(found.captured()));
        if (const auto found = placeholder.match(value); found.hasMatch())
            error(u"holds the placeholder "_s + found.captured());
        checkEdges(value);
    }

private:
    // Texts are joined as they stand, so that a blank at an end shows.
    void checkEdges(const QString &value) {
        if (value.front().isSpace())
            warning(u"begins with a blank"_s);
        const bool endsWithBlank = value.back().isSpace();
        if (key_ != countdownKeyWithBlank) {
            if (endsWithBlank)
                warning(u"ends with a blank"_s);
        } else if (endsWithBlank ? value.size() > 1 && value[value.size() - 2].isSpace()
                                 : !isWithoutBlanks(base_)) {
            warning(u"must end with one blank, as the key does"_s);
        }
    }

    void error(const QString &text) { findings_.error(where_, ofKey(text)); }
    void warning(const QString &text) { findings_.warning(where_, ofKey(text)); }
    QString ofKey(const QString &text) const { return u"the value of \"%1\" %2"_s.arg(key_, text); }

    QString where_;
    QString language_;
    QString base_;
    QString key_;
    Findings &findings_;
};

} // namespace

QString faultOfLanguage(const QString &code) {
    static const QRegularExpression form(u"\\A[A-Za-z]{2,3}([-_][A-Za-z0-9]+)*\\z"_s);
    if (!form.match(code).hasMatch())
        return u"is not named after a language, such as de.lproj or pt-BR.lproj"_s;
    auto parts = QString(code).replace(u'_', u'-').toLower().split(u'-');
    for (int i = 1; i < parts.size(); ++i) {
        if (parts[i].size() == 2)
            parts[i] = parts[i].toUpper();
        else if (parts[i].size() == 4)
            parts[i][0] = parts[i][0].toUpper();
    }
    const auto usual = parts.join(u'-');
    return usual == code ? QString() : u"must be spelled %1.lproj"_s.arg(usual);
}

QStringList tableNames() {
    return { u"Localizable.strings"_s, u"Main.strings"_s };
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
        findings.error(where, u"is missing"_s);
        return;
    }
    const auto texts = read(folder, table);
    if (!texts) {
        findings.error(
            where, u"is not a string table: UTF-8 text of lines in the form \"key\" = \"value\";"_s);
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
    for (const auto &key : missing)
        findings.error(where, u"the key \"%1\" is missing"_s.arg(key));
    // A misspelt key is one fault: the missing one.
    if (missing.isEmpty() && !unknown.isEmpty())
        findings.warning(where, u"unknown key \"%1\""_s.arg(unknown.join(u"\", \"")));
}

void checkTables(const QDir &resources, const QDir &wanted, Findings &findings) {
    const auto english = u"en.lproj"_s;
    for (const auto &table : tableNames()) {
        // What the agent asks for is compared with one language, so that a fault of all is reported once.
        const auto keys = keysOf(QDir(resources.filePath(english)), table);
        for (const auto &language : resources.entryList({ u"*.lproj"_s }, QDir::Dirs))
            checkTable(QDir(resources.filePath(language)), table,
                language == english ? keysOf(wanted, table) : keys, findings);
    }
    for (const auto &language : resources.entryList({ u"*.lproj"_s }, QDir::Dirs)) {
        if (const auto fault = faultOfLanguage(language.section(u'.', 0, 0)); !fault.isEmpty())
            findings.error(language, fault);
    }
}
