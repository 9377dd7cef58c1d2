#include "Tools/Gallery/Page.h"

#include <map>

namespace {

const auto beginning = QStringLiteral(R"(<!DOCTYPE html>
<html lang="en">
<meta charset="utf-8">
<meta name="viewport" content="width=device-width">
<title>Notices</title>
<style>
body { margin: 0 32px 64px; background: #cfd5e2; color: #1e2234; font: 14px sans-serif; }
h1 { margin: 32px 0 4px; font-size: 22px; }
h2 { margin: 40px 0 0; padding-top: 16px; border-top: 1px solid #a4adc0; font-size: 18px; }
h3 { margin: 24px 0 8px; font-size: 15px; }
nav a { margin-right: 12px; color: #1e2234; }
.group { display: flex; flex-wrap: wrap; align-items: flex-start; gap: 24px; }
figure { margin: 0; }
figure img { display: block; filter: drop-shadow(0 6px 10px rgba(30, 34, 52, .25)); }
figcaption { margin-bottom: 6px; color: #3a4056; font-size: 12px; }
</style>
<h1>Notices</h1>
)");

QString titleOf(const QString &section) {
    static const std::map<QString, QString> titles {
        { QStringLiteral("languages"), QStringLiteral("Every language") },
        { QStringLiteral("brands"), QStringLiteral("Other brands") },
        { QStringLiteral("texts"), QStringLiteral("Short, long and odd texts") },
        { QStringLiteral("scale2"), QStringLiteral("Scale 2") },
        { QStringLiteral("text14"), QStringLiteral("Text of 14 points") },
        { QStringLiteral("text20"), QStringLiteral("Text of 20 points") },
    };
    return titles.at(section);
}

} // namespace

QByteArray galleryPage(const std::vector<Picture> &pictures) {
    auto page = beginning + QStringLiteral("<p>%1 pictures.</p>\n<nav>").arg(pictures.size());
    QString section;
    for (const auto &picture : pictures) {
        if (picture.section != section)
            page += QStringLiteral("<a href=\"#%1\">%2</a>").arg(picture.section, titleOf(picture.section));
        section = picture.section;
    }
    page += QStringLiteral("</nav>\n");

    section.clear();
    QString group;
    bool isOpen = false;
    for (const auto &picture : pictures) {
        if (picture.section != section || picture.group != group) {
            if (isOpen)
                page += QStringLiteral("</div>\n");
            if (picture.section != section)
                page += QStringLiteral("<h2 id=\"%1\">%2</h2>\n")
                            .arg(picture.section, titleOf(picture.section));
            page += QStringLiteral("<h3>%1</h3>\n<div class=\"group\">\n").arg(picture.group.toHtmlEscaped());
            isOpen = true;
        }
        section = picture.section;
        group = picture.group;
        page += QStringLiteral("<figure><figcaption>%1</figcaption>"
                               "<img src=\"%2\" srcset=\"%2 %3x\" alt=\"%4 %1\" loading=\"lazy\"></figure>\n")
                    .arg(picture.name.toHtmlEscaped(), picture.path().toHtmlEscaped(),
                        QString::number(picture.scale), picture.group.toHtmlEscaped());
    }
    if (isOpen)
        page += QStringLiteral("</div>\n");
    return (page + QStringLiteral("</html>\n")).toUtf8();
}
