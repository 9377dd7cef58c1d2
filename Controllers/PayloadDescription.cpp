#include "Controllers/PayloadDescription.h"

#include <QDateTime>

namespace {

QString valueDescription(const QVariant &value) {
    switch (value.metaType().id()) {
    case QMetaType::QByteArray:
        return QString::number(value.toByteArray().size()) + QStringLiteral(" bytes");
    case QMetaType::QString:
        return u'"' + value.toString() + u'"';
    case QMetaType::QVariantMap:
        return payloadDescription(value.toMap());
    default:
        break;
    }
    return value.canConvert<QString>() ? value.toString()
                                       : u'<' + QString::fromLatin1(value.metaType().name()) + u'>';
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
