#include "Tests/Fakes/TemporaryBundle.h"

#include "Tests/Fakes/Logos.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <stdexcept>

namespace {

QString element(const QString &name, const QString &content) {
    return u'<' + name + u'>' + content + QStringLiteral("</") + name + u'>';
}

QString propertyListElement(const QVariant &value) {
    switch (value.metaType().id()) {
    case QMetaType::QString:
        return element(QStringLiteral("string"), value.toString().toHtmlEscaped());
    case QMetaType::Bool:
        return value.toBool() ? QStringLiteral("<true/>") : QStringLiteral("<false/>");
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        return element(QStringLiteral("integer"), value.toString());
    case QMetaType::Double:
        return element(QStringLiteral("real"), value.toString());
    case QMetaType::QByteArray:
        return element(QStringLiteral("data"), QString::fromLatin1(value.toByteArray().toBase64()));
    case QMetaType::QDateTime:
        return element(QStringLiteral("date"), value.toDateTime().toUTC().toString(Qt::ISODate));
    case QMetaType::QVariantList: {
        QString content;
        for (const auto &each : value.toList())
            content += propertyListElement(each);
        return element(QStringLiteral("array"), content);
    }
    case QMetaType::QVariantMap: {
        QString content;
        const auto map = value.toMap();
        for (auto entry = map.begin(); entry != map.end(); ++entry)
            content += element(QStringLiteral("key"), entry.key().toHtmlEscaped())
                + propertyListElement(entry.value());
        return element(QStringLiteral("dict"), content);
    }
    default:
        throw std::invalid_argument(std::string("no property list holds a ") + value.metaType().name());
    }
}

void write(const QString &path, const QByteArray &bytes) {
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        throw std::runtime_error("cannot write " + path.toStdString());
}

QString quoted(QString text) {
    text.replace(u'\\', QStringLiteral("\\\\"));
    text.replace(u'"', QStringLiteral("\\\""));
    text.replace(u'\n', QStringLiteral("\\n"));
    return u'"' + text + u'"';
}

} // namespace

QByteArray propertyListBytes(const QVariant &value) {
    return QByteArray("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">")
        + propertyListElement(value).toUtf8() + "</plist>\n";
}

TemporaryBundle::TemporaryBundle()
    : bundle_(folder_.path(), [this] { return preferredLanguages_; }) {
    QDir().mkpath(resources());
}

void TemporaryBundle::setInfo(const QVariantMap &info) {
    write(contents() + QStringLiteral("/Info.plist"), propertyListBytes(info));
}

void TemporaryBundle::setSettings(const QVariantMap &settings) {
    writeResource(QStringLiteral("Application_Shared.plist"), propertyListBytes(settings));
}

void TemporaryBundle::removeSettings() {
    QFile::remove(resources() + QStringLiteral("/Application_Shared.plist"));
}

void TemporaryBundle::addStrings(
    const QString &code, const std::map<QString, QString> &strings, const QString &table) {
    QString text;
    for (const auto &[key, value] : strings)
        text += quoted(key) + QStringLiteral(" = ") + quoted(value) + QStringLiteral(";\n");
    writeResource(code + QStringLiteral(".lproj/") + table + QStringLiteral(".strings"), text.toUtf8());
}

void TemporaryBundle::addImage(const QString &name, const QColor &color) {
    writeResource(name + QStringLiteral(".png"), logoBytes(color));
}

void TemporaryBundle::writeResource(const QString &path, const QByteArray &bytes) {
    write(resources() + u'/' + path, bytes);
}
