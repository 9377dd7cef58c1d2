#include "Platform/StringTable.h"

#include "Platform/PropertyList.h"

#include <QStringDecoder>

namespace {

/// Reads the text form: entries of two strings, with comments of both kinds of C++ between them.
class TableReader {
public:
    explicit TableReader(QStringView text)
        : text_(text) { }

    std::optional<StringTable::Table> read() {
        StringTable::Table table;
        while (skipBlanks() && !atEnd()) {
            const auto key = readString();
            if (!key || !skipBlanks())
                return std::nullopt;
            if (take(u';')) { // the short form: the key is its own value
                table.insert(*key, *key);
                continue;
            }
            if (!take(u'=') || !skipBlanks())
                return std::nullopt;
            const auto value = readString();
            if (!value || !skipBlanks() || !take(u';'))
                return std::nullopt;
            table.insert(*key, *value);
        }
        return atEnd() ? std::optional(table) : std::nullopt;
    }

private:
    bool atEnd() const { return position_ >= text_.size(); }
    char16_t peek(qsizetype ahead = 0) const {
        return position_ + ahead < text_.size() ? text_[position_ + ahead].unicode() : u'\0';
    }
    bool take(char16_t character) {
        if (atEnd() || peek() != character)
            return false;
        ++position_;
        return true;
    }

    // False when a comment has no end.
    bool skipBlanks() {
        while (!atEnd()) {
            if (text_[position_].isSpace()) {
                ++position_;
            } else if (peek() == u'/' && peek(1) == u'/') {
                while (!atEnd() && peek() != u'\n' && peek() != u'\r')
                    ++position_;
            } else if (peek() == u'/' && peek(1) == u'*') {
                const auto end = text_.indexOf(QLatin1String("*/"), position_ + 2);
                if (end < 0)
                    return false;
                position_ = end + 2;
            } else {
                return true;
            }
        }
        return true;
    }

    std::optional<QString> readString() {
        if (take(u'"'))
            return readQuoted(u'"');
        if (take(u'\''))
            return readQuoted(u'\'');
        return readBare();
    }

    std::optional<QString> readQuoted(char16_t quote) {
        QString result;
        while (!atEnd()) {
            const auto start = position_;
            while (!atEnd() && peek() != quote && peek() != u'\\')
                ++position_;
            result.append(text_.mid(start, position_ - start));
            if (take(quote))
                return result;
            if (!take(u'\\') || atEnd())
                return std::nullopt;
            result.append(readEscape());
        }
        return std::nullopt;
    }

    QChar readEscape() {
        const char16_t character = peek();
        ++position_;
        switch (character) {
        case u'a':
            return u'\a';
        case u'b':
            return u'\b';
        case u'f':
            return u'\f';
        case u'n':
            return u'\n';
        case u'r':
            return u'\r';
        case u't':
            return u'\t';
        case u'v':
            return u'\v';
        case u'U':
        case u'u':
            return QChar(readDigits(16, 4, 0));
        default:
            if (character >= u'0' && character <= u'7')
                return QChar(readDigits(8, 2, static_cast<char16_t>(character - u'0')));
            return QChar(character);
        }
    }

    char16_t readDigits(unsigned base, int most, char16_t value) {
        for (int count = 0; count < most; ++count) {
            const char16_t character = peek();
            unsigned digit = base;
            if (character >= u'0' && character <= u'9')
                digit = character - unsigned(u'0');
            else if (character >= u'a' && character <= u'f')
                digit = character - unsigned(u'a') + 10;
            else if (character >= u'A' && character <= u'F')
                digit = character - unsigned(u'A') + 10;
            if (digit >= base)
                break;
            value = static_cast<char16_t>(value * base + digit);
            ++position_;
        }
        return value;
    }

    std::optional<QString> readBare() {
        const auto start = position_;
        while (!atEnd()
            && (text_[position_].isLetterOrNumber() || peek() == u'_' || peek() == u'.' || peek() == u'-'
                || peek() == u'$' || peek() == u':'))
            ++position_;
        if (position_ == start)
            return std::nullopt;
        return text_.mid(start, position_ - start).toString();
    }

    const QStringView text_;
    qsizetype position_ = 0;
};

std::optional<StringTable::Table> fromPropertyList(const QVariant &list) {
    if (list.metaType().id() != QMetaType::QVariantMap)
        return std::nullopt;
    StringTable::Table table;
    const auto map = list.toMap();
    for (auto entry = map.begin(); entry != map.end(); ++entry) {
        if (entry.value().metaType().id() == QMetaType::QString)
            table.insert(entry.key(), entry.value().toString());
    }
    return table;
}

std::optional<QString> decoded(const QByteArray &bytes) {
    const auto encoding = QStringConverter::encodingForData(bytes).value_or(QStringConverter::Utf8);
    QStringDecoder decode(encoding);
    QString text = decode(bytes);
    if (decode.hasError())
        return std::nullopt;
    return text;
}

bool looksLikeXml(const QString &text) {
    return QStringView(text).trimmed().startsWith(u'<');
}

} // namespace

std::optional<StringTable::Table> StringTable::parse(const QByteArray &bytes) {
    if (bytes.startsWith("bplist")) {
        const auto list = PropertyList::parse(bytes);
        return list ? fromPropertyList(*list) : std::nullopt;
    }
    const auto text = decoded(bytes);
    if (!text)
        return std::nullopt;
    if (looksLikeXml(*text)) {
        // Decoded already: the mark and an encoding that the text declares are of no account.
        const auto list = PropertyList::parse(text->toUtf8());
        return list ? fromPropertyList(*list) : std::nullopt;
    }
    return TableReader(*text).read();
}
