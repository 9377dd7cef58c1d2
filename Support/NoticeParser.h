#pragma once

#include "Support/SocketPayload.h"

#include <optional>

/// Reads the CASB notice. Nothing, and no record in the log, when the text is no XML. Any thread.
std::optional<SocketPayload> parseNotice(const QString &xmlStr);

/// The header title of a notice, which the concurrent-session notice reads in the same way.
QString noticeTitle(const QString &head, const QString &module);

/// A signed decimal integer and nothing else: one sign at most, digits, no blanks. Anything else, and what is
/// past the range of 64 bits, is 0.
std::int64_t decimalInteger(const QString &text);
