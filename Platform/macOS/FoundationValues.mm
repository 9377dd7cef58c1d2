#include "Platform/macOS/FoundationValues.h"

#include <QDateTime>
#include <QTimeZone>

#include <cmath>
#include <limits>

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
    case 'Q': // unsigned long long
    case 'L': // unsigned long
        if ([number unsignedLongLongValue]
            > static_cast<unsigned long long>(std::numeric_limits<qlonglong>::max()))
            return QVariant::fromValue<qulonglong>([number unsignedLongLongValue]);
        [[fallthrough]];
    default:
        return QVariant::fromValue<qlonglong>([number longLongValue]);
    }
}

QVariant dateOf(NSDate *date) {
    const double milliseconds = std::round([date timeIntervalSince1970] * 1000);
    // What no calendar holds stays a date, that is none.
    constexpr double most = 9e15;
    if (!(std::abs(milliseconds) < most))
        return QDateTime();
    return QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(milliseconds), Qt::UTC);
}

QVariant otherOf(id object) {
    static const bool isPrintable = QMetaType::registerConverter(&OtherObject::description);
    Q_UNUSED(isPrintable)
    return QVariant::fromValue(OtherObject { FoundationValues::textOf(NSStringFromClass([object class])) });
}

QVariant valueAt(int depth, id object);

QVariantMap mapAt(int depth, NSDictionary *dictionary) {
    QVariantMap map;
    for (id key in dictionary) {
        if ([key isKindOfClass:[NSString class]])
            map.insert(FoundationValues::textOf(key), valueAt(depth, [dictionary objectForKey:key]));
    }
    return map;
}

QVariantList listAt(int depth, NSArray *array) {
    QVariantList list;
    for (id element in array)
        list.append(valueAt(depth, element));
    return list;
}

QVariant valueAt(int depth, id object) {
    if (!object)
        return {};
    if ([object isKindOfClass:[NSString class]])
        return FoundationValues::textOf(object);
    if ([object isKindOfClass:[NSNumber class]])
        return numberOf(object);
    if ([object isKindOfClass:[NSData class]]) {
        NSData *data = object;
        return QByteArray(static_cast<const char *>([data bytes]), static_cast<qsizetype>([data length]));
    }
    if ([object isKindOfClass:[NSDate class]])
        return dateOf(object);
    if (depth < FoundationValues::deepest && [object isKindOfClass:[NSArray class]])
        return listAt(depth + 1, object);
    if (depth < FoundationValues::deepest && [object isKindOfClass:[NSDictionary class]])
        return mapAt(depth + 1, object);
    return otherOf(object);
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

QVariant FoundationValues::valueOf(id object) {
    return valueAt(0, object);
}

QVariantMap FoundationValues::mapOf(NSDictionary *dictionary) {
    return mapAt(0, dictionary);
}
