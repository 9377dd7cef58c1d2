#include "Formats/BinaryPropertyList.h"

#include "Formats/File.h"
#include "Formats/Text.h"

using namespace Formats;

namespace {

constexpr std::string_view magic = "bplist0";
constexpr std::size_t headerSize = 8;
constexpr std::size_t trailerSize = 32;

// One object may be referred to many times.
constexpr std::size_t maxContent = 2 * maxFileSize; // bytes

enum Kind : std::uint64_t {
    Simple = 0x0,
    Integer = 0x1,
    Real = 0x2,
    Date = 0x3,
    DataBytes = 0x4,
    Ascii = 0x5,
    Utf16 = 0x6,
    Uid = 0x8,
    Array = 0xa,
    Dictionary = 0xd,
};

class Reader {
public:
    explicit Reader(std::string_view bytes)
        : bytes_(bytes) { }

    std::optional<PropertyList> read() {
        if (bytes_.size() < headerSize + trailerSize)
            return std::nullopt;
        const auto trailer = bytes_.size() - trailerSize;
        offsetWidth_ = static_cast<std::size_t>(*number(trailer + 6, 1));
        referenceWidth_ = static_cast<std::size_t>(*number(trailer + 7, 1));
        objectCount_ = *number(trailer + 8, 8);
        const auto root = *number(trailer + 16, 8);
        offsetTable_ = *number(trailer + 24, 8);
        const bool hasTable = offsetWidth_ > 0 && referenceWidth_ > 0 && objectCount_ <= bytes_.size()
            && offsetTable_ < trailer && objectCount_ * offsetWidth_ <= trailer - offsetTable_;
        const auto object = hasTable ? objectAt(root) : std::nullopt;
        return object && object->kind == Dictionary ? dictionary(*object) : std::nullopt;
    }

private:
    struct Object {
        std::uint64_t kind;
        unsigned information; ///< the low half of the marker
        std::size_t begin; ///< behind the marker
    };

    /// The most significant byte first. Nothing past the end, or wider than 8 bytes.
    std::optional<std::uint64_t> number(std::size_t offset, std::size_t width) const {
        if (width > sizeof(std::uint64_t) || offset > bytes_.size() || width > bytes_.size() - offset)
            return std::nullopt;
        std::uint64_t value = 0;
        for (const char byte : bytes_.substr(offset, width))
            value = value << 8 | static_cast<unsigned char>(byte);
        return value;
    }

    std::optional<Object> objectAt(std::uint64_t index) const {
        if (index >= objectCount_)
            return std::nullopt;
        const auto offset
            = number(static_cast<std::size_t>(offsetTable_ + index * offsetWidth_), offsetWidth_);
        const auto marker
            = offset && *offset >= headerSize ? number(static_cast<std::size_t>(*offset), 1) : std::nullopt;
        if (!marker)
            return std::nullopt;
        return Object { *marker >> 4, static_cast<unsigned>(*marker & 15),
            static_cast<std::size_t>(*offset) + 1 };
    }

    std::optional<Object> referredTo(std::size_t begin, std::uint64_t index) const {
        const auto reference
            = number(begin + static_cast<std::size_t>(index) * referenceWidth_, referenceWidth_);
        return reference ? objectAt(*reference) : std::nullopt;
    }

    std::optional<PropertyList> dictionary(Object object) {
        const auto entries = takeCount(object);
        if (!entries)
            return std::nullopt;
        PropertyList list;
        for (std::uint64_t index = 0; index < *entries; ++index) {
            const auto key = referredTo(object.begin, index);
            const auto value = referredTo(object.begin, *entries + index);
            auto name = key ? text(*key) : std::nullopt;
            auto content = value ? valueOf(*value) : std::nullopt;
            if (!name || !content)
                return std::nullopt;
            list.insert_or_assign(std::move(*name), std::move(*content));
        }
        return list;
    }

    std::optional<PropertyValue> valueOf(const Object &object) {
        switch (object.kind) {
        case Simple:
            if (object.information == 8 || object.information == 9)
                return object.information == 9;
            return PropertyValue();
        case Integer:
            return integer(object);
        case DataBytes:
            if (const auto bytes = content(object, 1))
                return Data { std::string(*bytes) };
            return std::nullopt;
        case Ascii:
        case Utf16:
            return text(object);
        case Real:
        case Date:
        case Uid:
        case Array:
        case Dictionary:
            return PropertyValue();
        default:
            return std::nullopt;
        }
    }

    // Up to 4 bytes without a sign, 8 bytes with one, 16 bytes only for what is past the range of 8.
    std::optional<PropertyValue> integer(const Object &object) const {
        constexpr unsigned sixteenBytes = 4;
        if (object.information == sixteenBytes)
            return PropertyValue();
        const auto value = number(object.begin, std::size_t { 1 } << object.information);
        return value ? std::optional<PropertyValue>(static_cast<std::int64_t>(*value)) : std::nullopt;
    }

    std::optional<std::string> text(const Object &object) {
        if (object.kind == Utf16) {
            const auto bytes = content(object, 2);
            return bytes ? textFromUtf16(*bytes, ByteOrder::BigEndian) : std::nullopt;
        }
        const auto bytes = object.kind == Ascii ? content(object, 1) : std::nullopt;
        // Some writers put UTF-8 here.
        return bytes && isUtf8(*bytes) ? std::optional(std::string(*bytes)) : std::nullopt;
    }

    /// @param width  of each element in bytes
    std::optional<std::string_view> content(Object object, std::size_t width) {
        const auto count = takeCount(object);
        const auto length = count ? static_cast<std::size_t>(*count) * width : 0;
        contentRead_ += length;
        if (!count || object.begin > bytes_.size() || length > bytes_.size() - object.begin
            || contentRead_ > maxContent)
            return std::nullopt;
        return bytes_.substr(object.begin, length);
    }

    /// How many elements an object has, at most as many as there are bytes. Moves `begin` to the first one.
    std::optional<std::uint64_t> takeCount(Object &object) const {
        constexpr unsigned countFollows = 15;
        if (object.information != countFollows)
            return object.information;
        const auto marker = number(object.begin, 1);
        if (!marker || *marker >> 4 != Integer)
            return std::nullopt;
        const auto width = std::size_t { 1 } << (*marker & 15);
        const auto count = number(object.begin + 1, width);
        object.begin += 1 + width;
        return count && *count <= bytes_.size() ? count : std::nullopt;
    }

    std::string_view bytes_;
    std::size_t offsetWidth_ = 0;
    std::size_t referenceWidth_ = 0;
    std::uint64_t objectCount_ = 0;
    std::uint64_t offsetTable_ = 0;
    std::size_t contentRead_ = 0;
};

} // namespace

bool Formats::isBinaryPropertyList(std::string_view bytes) {
    return bytes.starts_with(magic);
}

std::optional<PropertyList> Formats::parseBinaryPropertyList(std::string_view bytes) {
    return Reader(bytes).read();
}
