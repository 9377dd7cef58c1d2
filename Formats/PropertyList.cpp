#include "Formats/PropertyList.h"

#include "Formats/BinaryPropertyList.h"
#include "Formats/Expat.h"
#include "Formats/File.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <utility>
#include <vector>

using namespace Formats;

namespace {

// From `Key` on they hold text.
enum class Element { Plist, Dictionary, Array, True, False, Key, String, Integer, Data, Other };

constexpr std::array<std::pair<std::string_view, Element>, 11> elements { {
    { "plist", Element::Plist },
    { "dict", Element::Dictionary },
    { "array", Element::Array },
    { "key", Element::Key },
    { "string", Element::String },
    { "integer", Element::Integer },
    { "data", Element::Data },
    { "true", Element::True },
    { "false", Element::False },
    { "real", Element::Other },
    { "date", Element::Other },
} };

constexpr std::string_view blanks = " \t\r\n";

/// Nothing when it is no integer of 64 bits.
std::optional<PropertyValue> integerFrom(std::string_view text) {
    const bool isNegative = text.starts_with('-');
    if (isNegative || text.starts_with('+'))
        text.remove_prefix(1);
    int base = 10;
    if (text.starts_with("0x") || text.starts_with("0X")) {
        text.remove_prefix(2);
        base = 16;
    }
    std::uint64_t magnitude = 0;
    const auto *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, magnitude, base);
    constexpr auto max = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    if (error != std::errc() || stop != end || (isNegative && magnitude > max + 1))
        return std::nullopt;
    if (isNegative)
        return static_cast<std::int64_t>(0 - magnitude);
    return magnitude <= max ? PropertyValue(static_cast<std::int64_t>(magnitude)) : PropertyValue();
}

std::optional<unsigned> base64Digit(char character) {
    constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const auto digit = digits.find(character);
    return digit == std::string_view::npos ? std::nullopt : std::optional(static_cast<unsigned>(digit));
}

/// Nothing when it is no base64.
std::optional<PropertyValue> dataFrom(std::string_view text) {
    Data data;
    unsigned bits = 0;
    int bitCount = 0;
    bool isPadded = false;
    for (const char character : text) {
        if (blanks.find(character) != std::string_view::npos)
            continue;
        if (character == '=') {
            isPadded = true;
            continue;
        }
        const auto digit = base64Digit(character);
        if (!digit || isPadded)
            return std::nullopt;
        bits = (bits << 6 | *digit) & 0xffff;
        bitCount += 6;
        if (bitCount >= 8) {
            bitCount -= 8;
            data.bytes += static_cast<char>(bits >> bitCount);
        }
    }
    return data;
}

/// Receives the elements from Expat.
class XmlReader {
public:
    explicit XmlReader(const char *encoding)
        : parser_(encoding, *this) {
        XML_SetStartDoctypeDeclHandler(
            parser_.get(), [](void *self, const char *, const char *, const char *, int declaresSomething) {
                // Entities could make much of a few bytes.
                if (declaresSomething)
                    static_cast<XmlReader *>(self)->fail();
            });
    }

    std::optional<PropertyList> read(std::string_view text) {
        return parser_.parse(text) ? std::move(list_) : std::nullopt;
    }

    void begin(std::string_view name) {
        const auto *element = std::find_if(
            elements.begin(), elements.end(), [name](const auto &each) { return each.first == name; });
        if (element == elements.end() || !mayBegin(element->second))
            return fail();
        levels_.push_back({ element->second });
        if (isRoot() && element->second == Element::Dictionary)
            list_.emplace();
        text_.clear();
    }

    void end() {
        if (hasFailed_)
            return;
        const auto level = levels_.back();
        levels_.pop_back();
        if (level.element == Element::Key) {
            levels_.back().hasKey = true;
            if (isRoot())
                key_ = text_;
            return;
        }
        const bool isComplete = level.element == Element::Plist ? level.hasValue : !level.hasKey;
        auto value = isComplete ? valueOf(level.element) : std::nullopt;
        if (!value)
            return fail();
        if (isRoot() && levels_.back().element == Element::Dictionary)
            list_->insert_or_assign(key_, std::move(*value));
        if (!levels_.empty()) {
            levels_.back().hasKey = false;
            levels_.back().hasValue = true;
        }
    }

    void characters(std::string_view text) {
        if (hasFailed_ || levels_.empty())
            return;
        if (levels_.back().element >= Element::Key)
            text_ += text;
        else if (text.find_first_not_of(blanks) != std::string_view::npos)
            fail();
    }

private:
    struct Level {
        Element element;
        bool hasKey = false; ///< a dictionary's, whose value has not come yet
        bool hasValue = false;
    };

    void fail() {
        hasFailed_ = true;
        parser_.stop();
    }

    /// Whether the innermost element is the list's root.
    bool isRoot() const {
        return !levels_.empty() && levels_.size() == (levels_.front().element == Element::Plist ? 2 : 1);
    }

    bool mayBegin(Element element) const {
        if (hasFailed_)
            return false;
        if (levels_.empty())
            return element != Element::Key;
        const auto &parent = levels_.back();
        switch (parent.element) {
        case Element::Plist:
            return element != Element::Plist && element != Element::Key && !parent.hasValue;
        case Element::Dictionary:
            return element != Element::Plist && (element == Element::Key) != parent.hasKey;
        case Element::Array:
            return element != Element::Plist && element != Element::Key;
        default:
            return false;
        }
    }

    /// Nothing when the element's text is none of its kind.
    std::optional<PropertyValue> valueOf(Element element) const {
        switch (element) {
        case Element::True:
        case Element::False:
            return element == Element::True;
        case Element::Integer:
            return integerFrom(text_);
        case Element::String:
            return text_;
        case Element::Data:
            return dataFrom(text_);
        default:
            return PropertyValue();
        }
    }

    std::vector<Level> levels_;
    std::string text_;
    std::string key_;
    std::optional<PropertyList> list_;
    bool hasFailed_ = false;
    Expat<XmlReader> parser_;
};

/// The encoding that a byte order mark names, which overrules the declaration's; null without one.
const char *encodingOf(std::string_view bytes) {
    if (bytes.starts_with("\xff\xfe") || bytes.starts_with("\xfe\xff"))
        return "UTF-16";
    return bytes.starts_with("\xef\xbb\xbf") ? "UTF-8" : nullptr;
}

} // namespace

std::optional<PropertyList> Formats::parsePropertyList(std::string_view bytes) {
    if (bytes.size() > maxFileSize)
        return std::nullopt;
    return isBinaryPropertyList(bytes) ? parseBinaryPropertyList(bytes)
                                       : XmlReader(encodingOf(bytes)).read(bytes);
}

std::optional<std::string> Formats::stringOf(const PropertyList &list, std::string_view key) {
    const auto entry = list.find(key);
    const auto *text = entry == list.end() ? nullptr : std::get_if<std::string>(&entry->second);
    return text ? std::optional(*text) : std::nullopt;
}
