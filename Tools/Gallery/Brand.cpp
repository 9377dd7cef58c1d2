#include "Tools/Gallery/Brand.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QFont>
#include <QFontMetricsF>
#include <QImage>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

constexpr QLatin1String logoName("ic_brandLogo");
constexpr int logoHeight = 32;

QByteArray asPng(const QImage &image) {
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return buffer.data();
}

void writeFile(const QString &path, const QByteArray &content) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("%s cannot be written", qUtf8Printable(path));
}

QByteArray settings(const Brand &brand) {
    return u"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<plist version=\"1.0\"><dict>\n"
           "<key>AppLogo</key><string>%1</string>\n"
           "<key>Vendor</key><string>%2</string>\n"
           "<key>LogFolderName</key><string>gallery</string>\n"
           "<key>globalAppViewBackgroundColor</key><string>%3</string>\n"
           "</dict></plist>\n"_s.arg(logoName, brand.vendor.toHtmlEscaped(), brand.header.name())
               .toUtf8();
}

} // namespace

QByteArray wordLogo(const QString &word, const QColor &color, int scale) {
    QFont font;
    font.setPixelSize(21 * scale);
    font.setWeight(QFont::DemiBold);
    const QFontMetricsF metrics(font);
    QImage image(static_cast<int>(std::ceil(metrics.horizontalAdvance(word))), logoHeight * scale,
        QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath path;
    path.addText(0, (image.height() + metrics.capHeight()) / 2, font, word);
    painter.fillPath(path, color);
    painter.end();
    return asPng(image);
}

QByteArray plainLogo(int width, int height) {
    QImage image(width, height, QImage::Format_RGB32);
    QPainter painter(&image);
    QLinearGradient ground(0, 0, width, height);
    ground.setColorAt(0, QColor(240, 150, 30));
    ground.setColorAt(1, QColor(210, 60, 90));
    painter.fillRect(image.rect(), ground);
    painter.setPen(QPen(Qt::white, height / 16.0));
    painter.drawRect(image.rect().adjusted(height / 8, height / 8, -height / 8, -height / 8));
    painter.end();
    return asPng(image);
}

void makeBrandedContents(const QString &contents, const Brand &brand, const QString &branded) {
    const auto settingsName = u"Application_Shared.plist"_s;
    const QDir from(contents + u"/Resources"_s);
    const QDir to(branded + u"/Resources"_s);
    QDir().mkpath(to.path());
    QFile::link(contents + u"/Info.plist"_s, branded + u"/Info.plist"_s);
    for (const auto &name : from.entryList(QDir::AllEntries | QDir::NoDotAndDotDot)) {
        if (name != settingsName)
            QFile::link(from.filePath(name), to.filePath(name));
    }
    writeFile(to.filePath(settingsName), settings(brand));
    writeFile(to.filePath(logoName + u".png"_s), wordLogo(brand.vendor, brand.logo, 1));
    writeFile(to.filePath(logoName + u"@2x.png"_s), wordLogo(brand.vendor, brand.logo, 2));
}
