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

constexpr int mostContainers = 10'000;

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

} // namespace

std::optional<QVariant> PropertyList::parse(const QByteArray &bytes) {
    if (bytes.isEmpty() || bytes.size() > largestFile)
        return std::nullopt;
    // Not by the library: it asserts on a text with a zero in it, follows any depth on the stack, and takes
    // an object that is named a million times a million times.
    if (BinaryPropertyList::isIntroducedBy(bytes))
        return BinaryPropertyList::parse(bytes);
    if (!hasFewContainers(bytes))
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
    return file.read(status.st_size);
}
