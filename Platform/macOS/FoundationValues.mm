#include "Platform/macOS/FoundationValues.h"

namespace {

// There are but two of them, of a class of their own, while a number that is made from a char says of itself
// that its type is the same.
bool isBoolean(NSNumber *number) {
    return [number isKindOfClass:[[NSNumber numberWithBool:YES] class]];
}

QVariant numberOf(NSNumber *number) {
    if (isBoolean(number))
        return [number boolValue] != NO;
    switch (*[number objCType]) {
    case 'f':
    case 'd':
        return [number doubleValue];
    default:
        return QVariant::fromValue<qlonglong>([number longLongValue]);
    }
}

QVariant valueOf(id object) {
    if ([object isKindOfClass:[NSString class]])
        return FoundationValues::textOf(object);
    if ([object isKindOfClass:[NSNumber class]])
        return numberOf(object);
    if ([object isKindOfClass:[NSData class]]) {
        NSData *data = object;
        return QByteArray(static_cast<const char *>([data bytes]), static_cast<qsizetype>([data length]));
    }
    return QVariant::fromValue(OtherValue { FoundationValues::textOf(NSStringFromClass([object class])) });
}

} // namespace

QString FoundationValues::textOf(NSString *string) {
    QString text(static_cast<qsizetype>([string length]), Qt::Uninitialized);
    [string getCharacters:reinterpret_cast<unichar *>(text.data())
                    range:NSMakeRange(0, static_cast<NSUInteger>(text.size()))];
    return text;
}

NSString *FoundationValues::stringOf(const QString &text) {
    // Not every Foundation makes a string of half a character, and none is what must not stand in a
    // dictionary.
    const auto valid = text.isValidUtf16() ? text : QString::fromUtf8(text.toUtf8());
    return [NSString stringWithCharacters:reinterpret_cast<const unichar *>(valid.utf16())
                                   length:static_cast<NSUInteger>(valid.size())];
}

QVariantMap FoundationValues::mapOf(NSDictionary *dictionary) {
    QVariantMap map;
    for (id key in dictionary) {
        if ([key isKindOfClass:[NSString class]])
            map.insert(textOf(key), valueOf([dictionary objectForKey:key]));
    }
    return map;
}
