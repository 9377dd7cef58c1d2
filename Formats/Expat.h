#pragma once

// Expat 2.5 declares its limits on amplification only then.
#define XML_DTD 1 // NOLINT
#include <expat.h>

#include <limits>
#include <memory>
#include <string_view>

namespace Formats {

/// An Expat parser that hands elements and their texts to a handler. Private to the readers of XML.
/// @tparam Handler  has `begin(name)`, `end()` and `characters(text)`, each with a `std::string_view`
template <class Handler>
class Expat {
public:
    /// @param encoding  null to take it from the text
    Expat(const char *encoding, Handler &handler)
        : parser_(XML_ParserCreate(encoding)) {
        XML_SetUserData(get(), &handler);
        XML_SetElementHandler(
            get(), [](void *self, const char *name, const char **) { of(self).begin(name); },
            [](void *self, const char *) { of(self).end(); });
        XML_SetCharacterDataHandler(get(), [](void *self, const char *text, int length) {
            of(self).characters({ text, static_cast<std::size_t>(length) });
        });
    }

    XML_Parser get() const { return parser_.get(); }

    /// False when the text is not well-formed or the parsing was stopped.
    bool parse(std::string_view text) {
        return text.size() <= std::numeric_limits<int>::max()
            && XML_Parse(get(), text.data(), static_cast<int>(text.size()), XML_TRUE) == XML_STATUS_OK;
    }

    /// The handler may be called once more after this.
    void stop() { XML_StopParser(get(), XML_FALSE); }

private:
    struct Free {
        void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
    };

    static Handler &of(void *self) { return *static_cast<Handler *>(self); }

    std::unique_ptr<std::remove_pointer_t<XML_Parser>, Free> parser_;
};

} // namespace Formats
