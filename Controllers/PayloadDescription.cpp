#include "Controllers/PayloadDescription.h"

#include "Platform/DistributedNotificationCenter.h"

namespace {

QString valueDescription(const QVariant &value) {
    if (value.canConvert<OtherValue>())
        return u'<' + value.value<OtherValue>().typeName + u'>';
    switch (value.metaType().id()) {
    case QMetaType::QByteArray:
        return QString::number(value.toByteArray().size()) + QStringLiteral(" bytes");
    case QMetaType::QString:
        return u'"' + value.toString() + u'"';
    default:
        return value.toString();
    }
}

} // namespace

QString payloadDescription(const QVariantMap &payload) {
    QString description = QStringLiteral("{");
    for (auto entry = payload.begin(); entry != payload.end(); ++entry) {
        description += QStringLiteral("\n    ") + entry.key() + QStringLiteral(" = ")
            + valueDescription(entry.value()) + u';';
    }
    return description + (payload.isEmpty() ? QStringLiteral("}") : QStringLiteral("\n}"));
}
