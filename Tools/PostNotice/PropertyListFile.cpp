#include "Tools/PostNotice/PropertyListFile.h"

#include "Formats/PropertyList.h"
#include "Tools/PostNotice/Failure.h"
#include "Tools/PostNotice/InputFile.h"

#include <optional>
#include <variant>

using namespace NoticeClient;

namespace {

/// Nothing for a kind that the agent does not read.
std::optional<Value> valueOf(const Formats::PropertyValue &value) {
    if (const auto *flag = std::get_if<bool>(&value))
        return *flag;
    if (const auto *text = std::get_if<std::string>(&value))
        return *text;
    if (const auto *data = std::get_if<Formats::Data>(&value))
        return Data { data->bytes };
    return std::nullopt;
}

} // namespace

Dictionary readPropertyList(const std::string &option, const std::string &path) {
    const auto list = Formats::parsePropertyList(InputFile::read(option, path));
    if (!list)
        throw Failure(option + ": " + path + ": not a property list whose root is a dictionary");
    Dictionary result;
    for (const auto &[key, content] : *list) {
        auto value = valueOf(content);
        const auto *text = value ? std::get_if<std::string>(&*value) : nullptr;
        if (!isText(key) || (text && !isText(*text)))
            throw Failure(option + ": " + path + ": " + key.c_str() + ": a zero byte in a text");
        if (value)
            result.emplace(key, std::move(*value));
    }
    return result;
}
