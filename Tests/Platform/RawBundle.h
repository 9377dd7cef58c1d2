#pragma once

#include "Platform/Qt/FileBundle.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

/// An application bundle in a folder of its own, which goes with it. It begins with an empty Resources
/// folder.
class RawBundle {
public:
    RawBundle() { QDir(folder_.path()).mkpath(QStringLiteral("Contents/Resources")); }

    QString contents() const { return folder_.path() + QStringLiteral("/Contents"); }
    QString resource(const QString &name) const { return contents() + QStringLiteral("/Resources/") + name; }

    /// The bundle as a user of those languages opens it.
    FileBundle open(const QStringList &languages = {}) const {
        return FileBundle(contents(), [languages] { return languages; });
    }

    void writeResource(const QString &name, const QByteArray &bytes) const { write(resource(name), bytes); }
    void writeInformation(const QByteArray &entries) const {
        write(contents() + QStringLiteral("/Info.plist"), propertyList("<dict>" + entries + "</dict>"));
    }
    void writeTable(const QString &code, const QByteArray &text,
        const QString &table = QStringLiteral("Localizable")) const {
        writeResource(code + QStringLiteral(".lproj/") + table + QStringLiteral(".strings"), text);
    }
    void removeFolder(const QString &name) const { QDir(resource(name)).removeRecursively(); }

    static QByteArray propertyList(const QByteArray &value) {
        return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + value + "</plist>\n";
    }

    static void write(const QString &path, const QByteArray &bytes) {
        QDir().mkpath(QFileInfo(path).path());
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(bytes) != bytes.size())
            qFatal("Cannot write %s", qPrintable(path));
    }

private:
    QTemporaryDir folder_;
};
