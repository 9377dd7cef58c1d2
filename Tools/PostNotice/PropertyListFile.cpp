#include "Tools/PostNotice/PropertyListFile.h"

#include "Tools/PostNotice/Failure.h"
#include "Tools/PostNotice/InputFile.h"

#include <plist/plist.h>

#include <cstdlib>
#include <memory>
#include <optional>

using namespace NoticeClient;

namespace {

struct FreeNode {
    void operator()(plist_t node) const { plist_free(node); }
};
using Node = std::unique_ptr<std::remove_pointer_t<plist_t>, FreeNode>;

struct FreeMemory {
    void operator()(void *memory) const { std::free(memory); }
};
using Text = std::unique_ptr<char, FreeMemory>;

std::string textOf(const std::string &place, const char *bytes) {
    std::string result(bytes ? bytes : "");
    if (!NoticeClient::isText(result))
        throw Failure(place + ": not UTF-8 text");
    return result;
}

// Nothing for a value of another kind than any that the agent reads.
std::optional<Value> valueOf(const std::string &place, plist_t node) {
    char *raw = nullptr;
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        std::uint8_t result = 0;
        plist_get_bool_val(node, &result);
        return result != 0;
    }
    case PLIST_STRING: {
        plist_get_string_val(node, &raw);
        const Text owned(raw);
        return textOf(place, raw);
    }
    case PLIST_DATA: {
        std::uint64_t length = 0;
        plist_get_data_val(node, &raw, &length);
        const Text owned(raw);
        return Data { raw ? std::string(raw, length) : std::string() };
    }
    default:
        return std::nullopt;
    }
}

Dictionary dictionaryOf(const std::string &place, plist_t node) {
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
        if (auto value = valueOf(place + ": " + key.get(), child))
            result.insert_or_assign(textOf(place, key.get()), std::move(*value));
    }
}

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
    return dictionaryOf(option + ": " + path, root.get());
}
