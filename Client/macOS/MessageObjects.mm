#include "Client/macOS/MessageObjects.h"

#include <ctime>
#include <string_view>
#include <variant>

namespace NoticeClient {

namespace {

constexpr int deepest = 16;

Result<id> objectOf(const Value &value, int depth);
Result<NSDictionary *> dictionaryAt(const Dictionary &dictionary, int depth);

struct MakeObject {
    int depth;

    Result<id> operator()(bool value) const { return id([NSNumber numberWithBool:value ? YES : NO]); }
    Result<id> operator()(std::int64_t value) const { return id([NSNumber numberWithLongLong:value]); }
    Result<id> operator()(std::uint64_t value) const {
        return id([NSNumber numberWithUnsignedLongLong:value]);
    }
    Result<id> operator()(double value) const { return id([NSNumber numberWithDouble:value]); }
    Result<id> operator()(const std::string &value) const {
        if (!isText(value))
            return Error { ErrorCode::InvalidArgument, "a text is not UTF-8" };
        return id(MessageObjects::stringOf(value));
    }
    Result<id> operator()(const Data &value) const {
        return id([NSData dataWithBytes:value.bytes.data() length:value.bytes.size()]);
    }
    Result<id> operator()(const Date &value) const {
        std::tm moment {};
        const char *const end = ::strptime(value.text.c_str(), "%Y-%m-%dT%H:%M:%SZ", &moment);
        if (!end || *end != '\0')
            return id(nil);
        return id([NSDate dateWithTimeIntervalSince1970:static_cast<double>(::timegm(&moment))]);
    }
    Result<id> operator()(const List &value) const {
        NSMutableArray *array = [NSMutableArray arrayWithCapacity:value.size()];
        for (const auto &element : value) {
            const auto object = objectOf(element, depth + 1);
            if (!object)
                return object.error();
            if (*object)
                [array addObject:*object];
        }
        return id(array);
    }
    Result<id> operator()(const Dictionary &value) const {
        const auto dictionary = dictionaryAt(value, depth + 1);
        if (!dictionary)
            return dictionary.error();
        return id(*dictionary);
    }
};

Result<id> objectOf(const Value &value, int depth) {
    if (depth > deepest)
        return Error { ErrorCode::InvalidArgument, "nested too deep" };
    return std::visit(MakeObject { depth }, value.content);
}

Result<NSDictionary *> dictionaryAt(const Dictionary &dictionary, int depth) {
    NSMutableDictionary *objects = [NSMutableDictionary dictionaryWithCapacity:dictionary.size()];
    for (const auto &entry : dictionary) {
        if (!isText(entry.key))
            return Error { ErrorCode::InvalidArgument, "a key is not UTF-8 text" };
        const auto object = objectOf(entry.value, depth);
        if (!object)
            return Error { object.error().code, entry.key + ": " + object.error().message };
        if (*object)
            [objects setObject:*object forKey:MessageObjects::stringOf(entry.key)];
    }
    return static_cast<NSDictionary *>(objects);
}

} // namespace

bool isText(std::string_view bytes) {
    @autoreleasepool {
        return bytes.find('\0') == std::string_view::npos
            && MessageObjects::stringOf(std::string(bytes)) != nil;
    }
}

NSString *MessageObjects::stringOf(const std::string &text) {
    return [[[NSString alloc] initWithBytes:text.data() length:text.size()
                                   encoding:NSUTF8StringEncoding] autorelease];
}

Result<NSDictionary *> MessageObjects::dictionaryOf(const Dictionary &dictionary) {
    return dictionaryAt(dictionary, 1);
}

} // namespace NoticeClient
