#pragma once

#include "Support/SocketPayload.h"

#include <optional>

/// Whether the text is an XML document that is read. Any thread.
bool isXml(const QString &text);

/// Reads the CASB notice. Nothing, and no record in the log, when the text is no XML. Any thread.
std::optional<SocketPayload> parseNotice(const QString &xmlStr);

struct SessionNotice {
    QString title;
    QString body;
};

/// Reads the concurrent-session notice; its title is made like the CASB notice's. A text that is no XML reads
/// as a document without elements. Any thread.
SessionNotice parseSessionNotice(const QString &xmlStr);
