// The notice's XML as a message brings it, down to the parsed notice.

#include "Support/NoticeParser.h"
#include "Fuzz/Check.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

// A text is UTF-8, or UTF-16 behind a mark: the only way to surrogates that have no partner.
QString textOf(const std::uint8_t *data, std::size_t size) {
    if (size < 2 || data[0] != 0xff || data[1] != 0xfe)
        return QString::fromUtf8(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    QString text(static_cast<qsizetype>((size - 2) / sizeof(QChar)), Qt::Uninitialized);
    std::memcpy(text.data(), data + 2, static_cast<std::size_t>(text.size()) * sizeof(QChar));
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const auto text = textOf(data, size);
    const auto notice = parseNotice(text);
    check(notice.has_value() == isXml(text));
    if (!notice)
        return 0;
    check(notice->titleLabels.size() == notice->details.size());
    const auto session = parseSessionNotice(text);
    check(notice->module == session.title);
    check(notice->information == session.body);
    return 0;
}
