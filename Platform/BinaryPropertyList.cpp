#include "Platform/BinaryPropertyList.h"

#include "Platform/PropertyList.h"

#include <QDateTime>
#include <QStringDecoder>
#include <QVariant>

#include <bit>
#include <cmath>
#include <limits>

namespace {

constexpr auto magic = "bplist0";
constexpr std::size_t headerSize = 8;
constexpr std::size_t trailerSize = 32;

/// Reads numbers of a given width, the most significant byte first; nothing outside the bytes.
class Bytes {
public:
    explicit Bytes(const QByteArray &bytes)
        : bytes_(bytes) { }

    std::size_t size() const { return static_cast<std::size_t>(bytes_.size()); }
    bool holds(std::size_t offset, std::size_t length) const {
        return offset <= size() && length <= size() - offset;
    }
    /// @param width  up to 8
    std::optional<std::uint64_t> number(std::size_t offset, std::size_t width) const {
        if (width > sizeof(std::uint64_t) || !holds(offset, width))
            return std::nullopt;
        std::uint64_t value = 0;
        for (std::size_t index = offset; index < offset + width; ++index)
            value = value << 8 | static_cast<unsigned char>(bytes_[static_cast<qsizetype>(index)]);
        return value;
    }
    QByteArray part(std::size_t offset, std::size_t length) const {
        return bytes_.mid(static_cast<qsizetype>(offset), static_cast<qsizetype>(length));
    }

private:
    const QByteArray &bytes_;
};

class Reader {
public:
    explicit Reader(const QByteArray &bytes)
        : bytes_(bytes) { }

    std::optional<QVariant> read() {
        if (bytes_.size() < headerSize + trailerSize)
            return std::nullopt;
        const auto trailer = bytes_.size() - trailerSize;
        offsetWidth_ = static_cast<std::size_t>(*bytes_.number(trailer + 6, 1));
        referenceWidth_ = static_cast<std::size_t>(*bytes_.number(trailer + 7, 1));
        objectCount_ = *bytes_.number(trailer + 8, 8);
        const auto top = *bytes_.number(trailer + 16, 8);
        offsetTable_ = *bytes_.number(trailer + 24, 8);
        const bool hasTable = offsetWidth_ > 0 && referenceWidth_ > 0 && objectCount_ <= bytes_.size()
            && offsetTable_ < trailer && objectCount_ * offsetWidth_ <= trailer - offsetTable_;
        return hasTable ? object(top, 0) : std::nullopt;
    }

private:
    std::optional<QVariant> object(std::uint64_t index, int depth) {
        if (index >= objectCount_ || depth > PropertyList::deepest
            || ++objectsRead_ > PropertyList::mostObjects)
            return std::nullopt;
        const auto offset = bytes_.number(offsetTable_ + index * offsetWidth_, offsetWidth_);
        const auto marker = offset && *offset >= headerSize ? bytes_.number(*offset, 1) : std::nullopt;
        if (!marker)
            return std::nullopt;
        const auto kind = *marker >> 4;
        const auto information = static_cast<unsigned>(*marker & 15);
        const auto begin = static_cast<std::size_t>(*offset) + 1;
        switch (kind) {
        case 0x0:
            return simple(information);
        case 0x1:
            return integer(begin, information);
        case 0x2:
            return real(begin, information);
        case 0x3:
            return date(begin);
        case 0x4:
        case 0x5:
        case 0x6:
            return bytesOrText(kind, begin, information);
        case 0x8:
            return QVariant(); // a UID: no value that a configuration holds
        case 0xa:
            return array(begin, information, depth);
        case 0xd:
            return dictionary(begin, information, depth);
        default:
            return std::nullopt;
        }
    }

    static std::optional<QVariant> simple(unsigned information) {
        if (information == 8 || information == 9)
            return QVariant::fromValue(information == 9);
        return QVariant();
    }

    // Up to 4 bytes without a sign, 8 bytes with one, 16 bytes for what is past the range of 8.
    std::optional<QVariant> integer(std::size_t begin, unsigned power) const {
        constexpr unsigned powerOf16Bytes = 4;
        if (power == powerOf16Bytes) {
            const auto high = bytes_.number(begin, 8);
            const auto low = bytes_.number(begin + 8, 8);
            if (!high || !low || *high != 0)
                return std::nullopt;
            return *low > static_cast<std::uint64_t>(std::numeric_limits<qlonglong>::max())
                ? QVariant::fromValue(static_cast<qulonglong>(*low))
                : QVariant::fromValue(static_cast<qlonglong>(*low));
        }
        const auto value
            = power < powerOf16Bytes ? bytes_.number(begin, std::size_t { 1 } << power) : std::nullopt;
        return value ? std::optional(QVariant::fromValue(static_cast<qlonglong>(*value))) : std::nullopt;
    }

    std::optional<double> floatingPoint(std::size_t begin, unsigned power) const {
        const auto value
            = power == 2 || power == 3 ? bytes_.number(begin, std::size_t { 1 } << power) : std::nullopt;
        if (!value)
            return std::nullopt;
        if (power == 2)
            return static_cast<double>(std::bit_cast<float>(static_cast<std::uint32_t>(*value)));
        return std::bit_cast<double>(*value);
    }

    std::optional<QVariant> real(std::size_t begin, unsigned power) const {
        const auto value = floatingPoint(begin, power);
        return value ? std::optional(QVariant::fromValue(*value)) : std::nullopt;
    }

    std::optional<QVariant> date(std::size_t begin) const {
        constexpr double earliestOrLatest = 1e11; // some three thousand years either way
        const auto seconds = floatingPoint(begin, 3);
        if (!seconds || !(std::abs(*seconds) <= earliestOrLatest))
            return std::nullopt;
        return QVariant::fromValue(QDateTime::fromSecsSinceEpoch(
            PropertyList::secondsFrom1970To2001 + static_cast<qint64>(*seconds), Qt::UTC));
    }

    /// How many elements an object has; `begin` moves to the first one.
    std::optional<std::uint64_t> count(std::size_t &begin, unsigned information) const {
        constexpr unsigned countFollows = 15;
        if (information != countFollows)
            return information;
        const auto marker = bytes_.number(begin, 1);
        if (!marker || *marker >> 4 != 1)
            return std::nullopt;
        const auto width = std::size_t { 1 } << (*marker & 15);
        const auto value = bytes_.number(begin + 1, width);
        begin += 1 + width;
        return value && *value <= bytes_.size() ? value : std::nullopt;
    }

    std::optional<QVariant> bytesOrText(std::uint64_t kind, std::size_t begin, unsigned information) {
        const auto elements = count(begin, information);
        const std::size_t length = elements ? static_cast<std::size_t>(*elements) * (kind == 0x6 ? 2 : 1) : 0;
        bytesRead_ += length;
        if (!elements || !bytes_.holds(begin, length) || bytesRead_ > 2 * PropertyList::largestFile)
            return std::nullopt;
        const auto content = bytes_.part(begin, length);
        if (kind == 0x4)
            return QVariant::fromValue(content);
        if (kind == 0x5)
            return QVariant::fromValue(QString::fromUtf8(content)); // ASCII; some writers put UTF-8 here
        QStringDecoder decode(QStringConverter::Utf16BE);
        return QVariant::fromValue(QString(decode(content)));
    }

    std::optional<QVariant> elementAt(std::size_t begin, std::uint64_t index, int depth) {
        const auto reference
            = bytes_.number(begin + static_cast<std::size_t>(index) * referenceWidth_, referenceWidth_);
        return reference ? object(*reference, depth + 1) : std::nullopt;
    }

    std::optional<QVariant> array(std::size_t begin, unsigned information, int depth) {
        const auto elements = count(begin, information);
        if (!elements)
            return std::nullopt;
        QVariantList list;
        for (std::uint64_t index = 0; index < *elements; ++index) {
            auto value = elementAt(begin, index, depth);
            if (!value)
                return std::nullopt;
            list.append(std::move(*value));
        }
        return list;
    }

    std::optional<QVariant> dictionary(std::size_t begin, unsigned information, int depth) {
        const auto elements = count(begin, information);
        if (!elements)
            return std::nullopt;
        QVariantMap map;
        for (std::uint64_t index = 0; index < *elements; ++index) {
            const auto key = elementAt(begin, index, depth);
            if (!key || key->metaType().id() != QMetaType::QString)
                return std::nullopt;
            const auto value = elementAt(begin, *elements + index, depth);
            if (!value)
                return std::nullopt;
            map.insert(key->toString(), *value);
        }
        return map;
    }

    Bytes bytes_;
    std::size_t offsetWidth_ = 0;
    std::size_t referenceWidth_ = 0;
    std::uint64_t objectCount_ = 0;
    std::uint64_t offsetTable_ = 0;
    int objectsRead_ = 0;
    std::uint64_t bytesRead_ = 0;
};

} // namespace

bool BinaryPropertyList::isIntroducedBy(const QByteArray &bytes) {
    return bytes.startsWith(magic);
}

std::optional<QVariant> BinaryPropertyList::parse(const QByteArray &bytes) {
    return Reader(bytes).read();
}
