#include "Tools/Gallery/SampleTexts.h"

#include "Platform/StringTable.h"

#include <QFile>

#include <optional>

namespace {

/// Nothing without a file of that language; empty when the file is no string table.
std::optional<StringTable::Table> tableOf(const QString &language) {
    QFile file(QStringLiteral(":/samples/%1.strings").arg(language));
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    return StringTable::parse(file.readAll()).value_or(StringTable::Table());
}

} // namespace

SampleTexts SampleTexts::in(const QString &language) {
    const auto table = tableOf(language);
    const auto text = [&](const char *english) {
        const auto key = QString::fromUtf8(english);
        if (!table)
            return key;
        if (!table->contains(key))
            qFatal("%s.strings lacks the sample text \"%s\"", qPrintable(language), english);
        return table->value(key);
    };
    return {
        .head = text("Upload blocked"),
        .body
        = text("Your organisation does not allow files to be uploaded to personal storage. The file was "
               "not sent. Ask your administrator if you need access."),
        .upload = text("Upload"),
        .disconnect = text("The VPN will be disconnected by your organisation’s policy."),
        .disconnected = text("The VPN was disconnected by your organisation’s policy."),
        .sessionHead = text("This session was ended"),
        .sessionBody
        = text("You signed in on another computer, and your organisation allows one session at a "
               "time. To work here again, sign in again."),
        .maintenance
        = text("The service will be unavailable on Saturday from 22:00 to 23:30 while we upgrade "
               "the gateways. Your connection will be restored automatically."),
    };
}
