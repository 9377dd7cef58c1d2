#pragma once

#include "Client/NoticeClient.h"

#import <Foundation/Foundation.h>

/// A message as Foundation's objects. What is made is autoreleased.
namespace NoticeClient::MessageObjects {

/// Nil for what is not UTF-8.
NSString *stringOf(const std::string &text);

/// A key or a text that is no text is an `InvalidArgument`.
Result<NSDictionary *> dictionaryOf(const Dictionary &dictionary);

} // namespace NoticeClient::MessageObjects
