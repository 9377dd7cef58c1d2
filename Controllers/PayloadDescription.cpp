#include "Controllers/PayloadDescription.h"

#include <QDateTime>

namespace {

QString listDescription(const QVariantList &list);

QString valueDescription(const QVariant &value) {
    switch (value.metaType().id()) {
    case QMetaType::QByteArray:
        return QString::number(value.toByteArray().size()) + QStringLiteral(" bytes");
    case QMetaType::QString:
        return u'"' + value.toString() + u'"';
    case QMetaType::QVariantMap:
        return payloadDescription(value.toMap());
    case QMetaType::QVariantList:
        return listDescription(value.toList());
    default:
        break;
    }
    return value.canConvert<QString>() ? value.toString()
                                       : u'<' + QString::fromLatin1(value.metaType().name()) + u'>';
}

QString listDescription(const QVariantList &list) {
    QStringList values;
    for (const auto &value : list)
        values << valueDescription(value);
    return u'(' + values.join(QStringLiteral(", ")) + u')';
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
