#include "Tools/PostNotice/PropertyListFile.h"

#include "Tools/PostNotice/Failure.h"
#include "Tools/PostNotice/InputFile.h"

#include <plist/plist.h>

#include <array>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <memory>
#include <string_view>

using namespace NoticeClient;

namespace {

// The bus refuses values nested much deeper.
constexpr int deepest = 16;

struct FreeNode {
    void operator()(plist_t node) const { plist_free(node); }
};
using Node = std::unique_ptr<std::remove_pointer_t<plist_t>, FreeNode>;

struct FreeMemory {
    void operator()(void *memory) const { std::free(memory); }
};
using Text = std::unique_ptr<char, FreeMemory>;

/// Turns nodes into values; knows the place in the file for the line that says what is wrong there.
class Reader {
public:
    explicit Reader(std::string file)
        : place_(std::move(file)) { }

    Dictionary dictionary(plist_t node) const {
        Dictionary result;
        plist_dict_iter rawIterator = nullptr;
        plist_dict_new_iter(node, &rawIterator);
        const std::unique_ptr<void, FreeMemory> iterator(rawIterator);
        for (;;) {
            char *rawKey = nullptr;
            plist_t child = nullptr;
            plist_dict_next_item(node, rawIterator, &rawKey, &child);
            const Text key(rawKey);
            if (!child || !key)
                return result;
            const Reader reader(place_ + ": " + key.get(), depth_ + 1);
            setEntry(result, reader.text(key.get()), reader.value(child));
        }
    }

private:
    Reader(std::string place, int depth)
        : place_(std::move(place))
        , depth_(depth) { }

    [[noreturn]] void fail(const std::string &what) const { throw Failure(place_ + ": " + what); }

    std::string text(const char *bytes) const {
        std::string result(bytes ? bytes : "");
        if (!NoticeClient::isText(result))
            fail("not UTF-8 text");
        return result;
    }

    Value value(plist_t node) const {
        if (depth_ > deepest)
            fail("nested too deep");
        switch (plist_get_node_type(node)) {
        case PLIST_BOOLEAN: {
            std::uint8_t result = 0;
            plist_get_bool_val(node, &result);
            return { result != 0 };
        }
        case PLIST_UINT:
            return integer(node);
        case PLIST_REAL: {
            double result = 0;
            plist_get_real_val(node, &result);
            return { result };
        }
        case PLIST_STRING: {
            char *raw = nullptr;
            plist_get_string_val(node, &raw);
            const Text owned(raw);
            return { text(raw) };
        }
        case PLIST_DATA: {
            char *raw = nullptr;
            std::uint64_t length = 0;
            plist_get_data_val(node, &raw, &length);
            const Text owned(raw);
            return { Data { raw ? std::string(raw, length) : std::string() } };
        }
        case PLIST_DATE:
            return date(node);
        case PLIST_ARRAY:
            return list(node);
        case PLIST_DICT:
            return { dictionary(node) };
        default:
            fail("of a kind that cannot be sent");
        }
    }

    // The library hands every integer out unsigned. One with the top bit set is either negative or too large
    // for a signed one; only its printed form tells which.
    static Value integer(plist_t node) {
        std::uint64_t result = 0;
        plist_get_uint_val(node, &result);
        if (result <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
            return { static_cast<std::int64_t>(result) };

        const Node copy(plist_copy(node));
        char *xml = nullptr;
        std::uint32_t length = 0;
        plist_to_xml(copy.get(), &xml, &length);
        const Text owned(xml);
        if (xml && std::string_view(xml, length).find("<integer>-") != std::string_view::npos)
            return { static_cast<std::int64_t>(result) };
        return { result };
    }

    Value date(plist_t node) const {
        constexpr std::time_t from1970To2001 = 978307200;
        std::int32_t seconds = 0;
        std::int32_t microseconds = 0;
        plist_get_date_val(node, &seconds, &microseconds);
        const std::time_t moment = from1970To2001 + seconds;
        std::tm parts {};
        std::array<char, 32> result {};
        if (!gmtime_r(&moment, &parts)
            || std::strftime(result.data(), result.size(), "%Y-%m-%dT%H:%M:%SZ", &parts) == 0)
            fail("a date that cannot be sent");
        return { Date { result.data() } };
    }

    Value list(plist_t node) const {
        List result;
        const Reader reader(place_, depth_ + 1);
        for (std::uint32_t index = 0, count = plist_array_get_size(node); index < count; ++index)
            result.push_back(reader.value(plist_array_get_item(node, index)));
        return { std::move(result) };
    }

    std::string place_;
    int depth_ = 0;
};

} // namespace

Dictionary readPropertyList(const std::string &option, const std::string &path) {
    const auto bytes = InputFile::read(option, path);
    const auto length = static_cast<std::uint32_t>(bytes.size());
    plist_t raw = nullptr;
    if (length > 0 && plist_is_binary(bytes.data(), length))
        plist_from_bin(bytes.data(), length, &raw);
    else if (length > 0)
        plist_from_xml(bytes.data(), length, &raw);
    const Node root(raw);
    if (!root)
        throw Failure(option + ": " + path + ": not a property list");
    if (plist_get_node_type(root.get()) != PLIST_DICT)
        throw Failure(option + ": " + path + ": its root is not a dictionary");
    return Reader(option + ": " + path).dictionary(root.get());
}
