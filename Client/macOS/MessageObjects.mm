#include "Client/macOS/MessageObjects.h"

namespace NoticeClient {

namespace {

/// Nil for a text that is none.
struct MakeObject {
    id operator()(bool value) const { return [NSNumber numberWithBool:value ? YES : NO]; }
    id operator()(const std::string &value) const {
        return isText(value) ? MessageObjects::stringOf(value) : nil;
    }
    id operator()(const Data &value) const {
        return [NSData dataWithBytes:value.bytes.data() length:value.bytes.size()];
    }
};

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
    NSMutableDictionary *objects = [NSMutableDictionary dictionaryWithCapacity:dictionary.size()];
    for (const auto &[key, value] : dictionary) {
        if (!isText(key))
            return Error { ErrorCode::InvalidArgument, "a key is not UTF-8 text" };
        const id object = std::visit(MakeObject(), value);
        if (!object)
            return Error { ErrorCode::InvalidArgument, key + ": not UTF-8 text" };
        [objects setObject:object forKey:stringOf(key)];
    }
    return static_cast<NSDictionary *>(objects);
}

} // namespace NoticeClient
