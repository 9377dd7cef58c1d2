#include "Tools/Gallery/SampleTexts.h"

#include "Formats/StringTable.h"

#include <QFile>

#include <optional>

using namespace Qt::StringLiterals;

namespace {

/// Nothing without a file of that language; empty when the file is no string table.
std::optional<Formats::StringTable> tableOf(const QString &language) {
    QFile file(u":/samples/%1.strings"_s.arg(language));
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    return Formats::parseStringTable(file.readAll().toStdString()).value_or(Formats::StringTable());
}

} // namespace

SampleTexts SampleTexts::in(const QString &language) {
    const auto table = tableOf(language);
    const auto text = [&](const char *english) {
        if (!table)
            return QString::fromUtf8(english);
        const auto found = table->find(english);
        if (found == table->end())
            qFatal("%s.strings lacks the sample text \"%s\"", qPrintable(language), english);
        return QString::fromStdString(found->second);
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
