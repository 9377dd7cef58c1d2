#include "Platform/PropertyList.h"

#include "Platform/BinaryPropertyList.h"

#include <QDateTime>
#include <QFile>

#include <plist/plist.h>

#include <cstdlib>
#include <limits>
#include <memory>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// A property list that is nested deeper, or holds more values, is not one that anybody wrote.
constexpr int deepest = 64;
constexpr int mostContainers = 10'000;
constexpr int mostValues = 1'000'000;

struct FreeNode {
    void operator()(plist_t node) const { plist_free(node); }
};
using Node = std::unique_ptr<std::remove_pointer_t<plist_t>, FreeNode>;

struct FreeMemory {
    void operator()(void *memory) const { std::free(memory); }
};

class FileDescriptor {
public:
    explicit FileDescriptor(int descriptor)
        : descriptor_(descriptor) { }
    ~FileDescriptor() {
        if (descriptor_ >= 0)
            ::close(descriptor_);
    }
    FileDescriptor(const FileDescriptor &) = delete;
    FileDescriptor &operator=(const FileDescriptor &) = delete;
    int get() const { return descriptor_; }

private:
    int descriptor_;
};

QString text(const char *bytes) {
    return QString::fromUtf8(bytes);
}

// The library hands every integer out unsigned. One with the top bit set is either negative or too large for
// a signed one; only its printed form tells which.
QVariant integerValue(plist_t node) {
    std::uint64_t value = 0;
    plist_get_uint_val(node, &value);
    if (value <= static_cast<std::uint64_t>(std::numeric_limits<qlonglong>::max()))
        return QVariant::fromValue(static_cast<qlonglong>(value));

    const Node copy(plist_copy(node));
    char *xml = nullptr;
    std::uint32_t length = 0;
    plist_to_xml(copy.get(), &xml, &length);
    const std::unique_ptr<char, FreeMemory> owned(xml);
    const bool negative = xml && std::string_view(xml, length).find("<integer>-") != std::string_view::npos;
    return negative ? QVariant::fromValue(static_cast<qlonglong>(value))
                    : QVariant::fromValue(static_cast<qulonglong>(value));
}

// The library goes down into a list once a level, and up again to free it: very many levels end its stack.
bool hasFewContainers(const QByteArray &xml) {
    return xml.count("<array") + xml.count("<dict") <= mostContainers;
}

/// What a binary list holds, looked through before the library builds it. There a container names its members
/// by number, so that a few bytes can stand for any number of values.
class BinaryOutline {
public:
    explicit BinaryOutline(const QByteArray &bytes)
        : bytes_(bytes) { }

    bool isReasonable() {
        constexpr qsizetype trailer = 32;
        const auto start = bytes_.size() - trailer;
        if (start < 0)
            return false;
        offsetSize_ = static_cast<unsigned char>(bytes_[start + 6]);
        referenceSize_ = static_cast<unsigned char>(bytes_[start + 7]);
        objects_ = number(start + 8, 8).value_or(0);
        const auto top = number(start + 16, 8);
        table_ = number(start + 24, 8).value_or(0);
        return top && isReasonable(*top, 0);
    }

private:
    /// Big-endian; nothing past the end of the bytes, or past what could be a place in them.
    std::optional<qint64> number(qint64 position, int size) const {
        if (size < 1 || size > 8 || position < 0 || position > bytes_.size() - size)
            return std::nullopt;
        std::uint64_t value = 0;
        for (int index = 0; index < size; ++index)
            value = value << 8 | static_cast<unsigned char>(bytes_[position + index]);
        constexpr auto most = static_cast<std::uint64_t>(std::numeric_limits<std::int32_t>::max());
        return value <= most ? std::optional(static_cast<qint64>(value)) : std::nullopt;
    }

    bool isReasonable(qint64 object, int depth) {
        if (depth > deepest || ++values_ > mostValues || object >= objects_)
            return false;
        const auto place = number(table_ + object * offsetSize_, offsetSize_);
        const auto marker = place ? number(*place, 1) : std::nullopt;
        if (!marker)
            return false;
        const auto kind = *marker & 0xf0;
        constexpr qint64 array = 0xa0;
        constexpr qint64 set = 0xc0;
        constexpr qint64 dictionary = 0xd0;
        if (kind != array && kind != set && kind != dictionary)
            return true;

        constexpr qint64 countFollows = 0x0f;
        auto count = std::optional(*marker & 0x0f);
        auto member = *place + 1;
        if (*count == countFollows) {
            const auto integer = number(member, 1);
            if (!integer || (*integer & 0xf0) != 0x10 || (*integer & 0x0f) > 3)
                return false;
            const int size = 1 << (*integer & 0x0f);
            count = number(member + 1, size);
            member += 1 + size;
        }
        if (!count)
            return false;
        for (qint64 left = kind == dictionary ? 2 * *count : *count; left > 0; --left) {
            const auto reference = number(member, referenceSize_);
            if (!reference || !isReasonable(*reference, depth + 1))
                return false;
            member += referenceSize_;
        }
        return true;
    }

    const QByteArray &bytes_;
    int offsetSize_ = 0;
    int referenceSize_ = 0;
    qint64 objects_ = 0;
    qint64 table_ = 0;
    int values_ = 0;
};

std::optional<QVariant> valueOf(plist_t node, int depth);

std::optional<QVariant> dictionaryValue(plist_t node, int depth) {
    QVariantMap map;
    plist_dict_iter rawIterator = nullptr;
    plist_dict_new_iter(node, &rawIterator);
    const std::unique_ptr<void, FreeMemory> iterator(rawIterator);
    for (;;) {
        char *rawKey = nullptr;
        plist_t child = nullptr;
        plist_dict_next_item(node, rawIterator, &rawKey, &child);
        const std::unique_ptr<char, FreeMemory> key(rawKey);
        if (!child)
            return map;
        auto value = valueOf(child, depth + 1);
        if (!value || !key)
            return std::nullopt;
        map.insert(text(key.get()), *value);
    }
}

std::optional<QVariant> arrayValue(plist_t node, int depth) {
    QVariantList list;
    plist_array_iter rawIterator = nullptr;
    plist_array_new_iter(node, &rawIterator);
    const std::unique_ptr<void, FreeMemory> iterator(rawIterator);
    for (;;) {
        plist_t child = nullptr;
        plist_array_next_item(node, rawIterator, &child);
        if (!child)
            return list;
        auto value = valueOf(child, depth + 1);
        if (!value)
            return std::nullopt;
        list.append(*value);
    }
}

std::optional<QVariant> valueOf(plist_t node, int depth) {
    if (depth > PropertyList::deepest)
        return std::nullopt;
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        std::uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return QVariant::fromValue(value != 0);
    }
    case PLIST_UINT:
        return integerValue(node);
    case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(node, &value);
        return QVariant::fromValue(value);
    }
    case PLIST_STRING: {
        // Not the copy: the library asserts that it is as long as what it was made of.
        const auto *value = plist_get_string_ptr(node, nullptr);
        return QVariant::fromValue(value ? text(value) : QString());
    }
    case PLIST_DATA: {
        char *value = nullptr;
        std::uint64_t length = 0;
        plist_get_data_val(node, &value, &length);
        const std::unique_ptr<char, FreeMemory> owned(value);
        return QVariant::fromValue(QByteArray(value, static_cast<qsizetype>(length)));
    }
    case PLIST_DATE: {
        std::int32_t seconds = 0;
        std::int32_t microseconds = 0;
        plist_get_date_val(node, &seconds, &microseconds);
        return QVariant::fromValue(
            QDateTime::fromSecsSinceEpoch(PropertyList::secondsFrom1970To2001 + seconds, Qt::UTC));
    }
    case PLIST_DICT:
        return dictionaryValue(node, depth);
    case PLIST_ARRAY:
        return arrayValue(node, depth);
    default:
        // A UID, a key or nothing at all: no value that a configuration holds.
        return QVariant();
    }
}

// The library goes through a list, and frees it, level by level on the stack.
bool hasFewLevels(const QByteArray &xml) {
    int level = 0;
    for (auto tag = xml.indexOf('<'); tag >= 0; tag = xml.indexOf('<', tag + 1)) {
        const auto rest = QByteArrayView(xml).sliced(tag + 1);
        if (rest.startsWith("array") || rest.startsWith("dict"))
            ++level;
        else if (rest.startsWith("/array") || rest.startsWith("/dict"))
            --level;
        const bool isEmptyElement = false;
        Q_UNUSED(isEmptyElement)
        if (level > PropertyList::deepest)
            return false;
    }
    return true;
}

} // namespace

std::optional<QVariant> PropertyList::parse(const QByteArray &bytes) {
    if (bytes.isEmpty() || bytes.size() > largestFile)
        return std::nullopt;
    // Not by the library: it asserts on a text with a zero in it, follows any depth on the stack, and takes
    // an object that is named a million times a million times.
    if (BinaryPropertyList::isIntroducedBy(bytes))
        return BinaryPropertyList::parse(bytes);
    if (!hasFewLevels(bytes))
        return std::nullopt;
    plist_t raw = nullptr;
    plist_from_xml(bytes.constData(), static_cast<std::uint32_t>(bytes.size()), &raw);
    const Node node(raw);
    if (!node)
        return std::nullopt;
    return valueOf(node.get(), 0);
}

std::optional<QVariant> PropertyList::read(const QString &path) {
    const auto bytes = readBytes(path);
    return bytes ? parse(*bytes) : std::nullopt;
}

std::optional<QByteArray> PropertyList::readBytes(const QString &path) {
    // Not blocking, so that a FIFO in the file's place cannot hold the agent up.
    const FileDescriptor descriptor(
        ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    struct stat status { };
    if (descriptor.get() < 0 || ::fstat(descriptor.get(), &status) != 0 || !S_ISREG(status.st_mode)
        || status.st_size > largestFile)
        return std::nullopt;

    QFile file;
    if (!file.open(descriptor.get(), QIODevice::ReadOnly | QIODevice::Unbuffered))
        return std::nullopt;
    return file.read(largestFile);
}
