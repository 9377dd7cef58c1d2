#include "Tools/PostNotice/PropertyListFile.h"

#include "Formats/PropertyList.h"
#include "Tools/PostNotice/Failure.h"
#include "Tools/PostNotice/InputFile.h"

#include <variant>

using namespace NoticeClient;

namespace {

/// The value as it is sent; nothing for a kind that the agent does not read.
std::optional<Value> valueOf(const Formats::PropertyValue &value) {
    if (const auto *flag = std::get_if<bool>(&value))
        return Value { *flag };
    if (const auto *text = std::get_if<std::string>(&value))
        return Value { *text };
    if (const auto *data = std::get_if<Formats::Data>(&value))
        return Value { Data { data->bytes } };
    return std::nullopt;
}

} // namespace

Dictionary readPropertyList(const std::string &option, const std::string &path) {
    const auto list = Formats::parsePropertyList(InputFile::read(option, path));
    if (!list)
        throw Failure(option + ": " + path + ": not a property list with a dictionary as its root");
    Dictionary result;
    for (const auto &[key, content] : *list) {
        const auto value = valueOf(content);
        const auto *text = value ? std::get_if<std::string>(&value->content) : nullptr;
        if (!isText(key) || (text && !isText(*text)))
            throw Failure(option + ": " + path + ": " + key + ": a zero byte in a text");
        if (value)
            setEntry(result, key, *value);
    }
    return result;
}
