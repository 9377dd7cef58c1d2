#include "Tests/Fakes/TemporaryBundle.h"

#include "Tests/Fakes/Logos.h"

namespace {

QString element(const QString &name, const QString &content) {
    return u'<' + name + u'>' + content + QStringLiteral("</") + name + u'>';
}

QString valueElement(const QVariant &value) {
    const auto text = value.toString().toHtmlEscaped();
    switch (value.metaType().id()) {
    case QMetaType::QString:
        return element(QStringLiteral("string"), text);
    case QMetaType::Bool:
        return u'<' + text + QStringLiteral("/>");
    case QMetaType::Double:
        return element(QStringLiteral("real"), text);
    default:
        return element(QStringLiteral("integer"), text);
    }
}

QByteArray entries(const QVariantMap &values) {
    QString content;
    for (auto entry = values.begin(); entry != values.end(); ++entry)
        content += element(QStringLiteral("key"), entry.key()) + valueElement(entry.value());
    return content.toUtf8();
}

} // namespace

void TemporaryBundle::setInfo(const QVariantMap &info) {
    writeInformation(entries(info));
}

void TemporaryBundle::setSettings(const QVariantMap &settings) {
    writeResource(
        QStringLiteral("Application_Shared.plist"), propertyList("<dict>" + entries(settings) + "</dict>"));
}

void TemporaryBundle::removeSettings() {
    QFile::remove(resource(QStringLiteral("Application_Shared.plist")));
}

void TemporaryBundle::addStrings(
    const QString &code, const std::map<QString, QString> &strings, const QString &table) {
    QString text;
    for (const auto &[key, value] : strings)
        text += QStringLiteral("\"%1\" = \"%2\";\n").arg(key, value);
    writeTable(code, text.toUtf8(), table);
}

void TemporaryBundle::addImage(const QString &name, const QColor &color) {
    writeResource(name + QStringLiteral(".png"), logoBytes(color));
}
