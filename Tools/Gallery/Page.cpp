#include "Tools/Gallery/Page.h"

#include <map>

namespace {

const auto beginning = QStringLiteral(R"(<!DOCTYPE html>
<html lang="en">
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>%1</title>
<style>
body { margin: 0 auto; padding: 0 4vw 64px; max-width: 1600px; background: #cfd5e2; color: #1e2234;
  font: 14px/1.5 sans-serif; }
h1 { margin: 32px 0 4px; font-size: 22px; }
h2 { margin: 40px 0 12px; padding-top: 16px; border-top: 1px solid #a4adc0; font-size: 18px; }
h3 { margin: 24px 0 8px; font-size: 15px; }
nav a { display: inline-block; margin-right: 12px; color: #1e2234; }
.group { display: flex; flex-wrap: wrap; align-items: flex-start; gap: 24px; }
figure { margin: 0; max-width: 100%; }
figcaption { margin-bottom: 6px; color: #3a4056; font-size: 12px; }
img { display: block; max-width: 100%; height: auto; filter: drop-shadow(0 4px 8px rgba(30, 34, 52, .25)); }
.table { overflow-x: auto; }
table { border-spacing: 12px; margin: 0 -12px; }
th { text-align: start; font-size: 12px; }
tbody th { position: sticky; left: 0; padding: 4px 8px; background: #cfd5e2; vertical-align: top; z-index: 1; }
td { min-width: 200px; vertical-align: top; }
</style>
<h1>%1</h1>
)");

const auto firstLanguage = QStringLiteral("en");
const auto languages = QStringLiteral("languages");

QString titleOf(const QString &section) {
    static const std::map<QString, QString> titles {
        { languages, QStringLiteral("Every language") },
        { QStringLiteral("brands"), QStringLiteral("Other brands") },
        { QStringLiteral("texts"), QStringLiteral("Short, long and odd texts") },
        { QStringLiteral("scale2"), QStringLiteral("Scale 2") },
        { QStringLiteral("text14"), QStringLiteral("Text of 14 points") },
        { QStringLiteral("text20"), QStringLiteral("Text of 20 points") },
    };
    return titles.at(section);
}

using Pictures = std::vector<const Picture *>;

QString image(const Picture &picture) {
    return QStringLiteral(
        "<a href=\"%1\"><img src=\"%1\" srcset=\"%1 %2x\" alt=\"%3 %4\" loading=\"lazy\"></a>")
        .arg(picture.path().toHtmlEscaped(), QString::number(picture.scale), picture.group.toHtmlEscaped(),
            picture.name.toHtmlEscaped());
}

QString group(const QString &title, const Pictures &pictures) {
    auto html = QStringLiteral("<h3>%1</h3>\n<div class=\"group\">\n").arg(title.toHtmlEscaped());
    for (const auto *picture : pictures)
        html += QStringLiteral("<figure><figcaption>%1</figcaption>%2</figure>\n")
                    .arg(picture->name.toHtmlEscaped(), image(*picture));
    return html + QStringLiteral("</div>\n");
}

// One row a language, one column a notice.
QString table(const std::map<QString, Pictures> &groups) {
    QString links;
    QString rows;
    for (const auto &[code, pictures] : groups) {
        const auto language = code.toHtmlEscaped();
        links += QStringLiteral("<a href=\"#language-%1\">%1</a>").arg(language);
        rows += QStringLiteral("<tr id=\"language-%1\"><th>%1</th>").arg(language);
        for (const auto *picture : pictures)
            rows += QStringLiteral("<td>%1</td>").arg(image(*picture));
        rows += QStringLiteral("</tr>\n");
    }
    QString heads;
    for (const auto *picture : groups.begin()->second)
        heads += QStringLiteral("<th>%1</th>").arg(picture->name.toHtmlEscaped());
    return QStringLiteral("<nav>%1</nav>\n<div class=\"table\"><table><thead><tr><th></th>%2</tr></thead>\n"
                          "<tbody>\n%3</tbody></table></div>\n")
        .arg(links, heads, rows);
}

QString section(const QString &name, const Pictures &pictures) {
    std::map<QString, Pictures> groups;
    for (const auto *picture : pictures)
        groups[picture->group].push_back(picture);
    auto html = QStringLiteral("<h2 id=\"%1\">%2</h2>\n").arg(name, titleOf(name));
    if (name == languages) {
        if (const auto first = groups.find(firstLanguage); first != groups.end())
            html += group(first->first, first->second);
        return html + table(groups);
    }
    for (const auto &[title, members] : groups)
        html += group(title, members);
    return html;
}

} // namespace

QByteArray galleryPage(const QString &title, const std::vector<Picture> &pictures) {
    QStringList names;
    std::map<QString, Pictures> sections;
    for (const auto &picture : pictures) {
        if (!names.contains(picture.section))
            names << picture.section;
        sections[picture.section].push_back(&picture);
    }
    auto page = beginning.arg(title.toHtmlEscaped())
        + QStringLiteral("<p>%1 pictures.</p>\n<nav>").arg(pictures.size());
    for (const auto &name : names)
        page += QStringLiteral("<a href=\"#%1\">%2</a>").arg(name, titleOf(name));
    page += QStringLiteral("</nav>\n");
    for (const auto &name : names)
        page += section(name, sections[name]);
    return (page + QStringLiteral("</html>\n")).toUtf8();
}
