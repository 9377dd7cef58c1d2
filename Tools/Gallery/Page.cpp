#include "Tools/Gallery/Page.h"

#include <map>

using namespace Qt::StringLiterals;

namespace {

const auto beginning = uR"(<!DOCTYPE html>
<html lang="en">
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>%1</title>
<style>
body { margin: 0 auto; padding: 0 2vw 64px; max-width: 1600px; background: #cfd5e2; color: #1e2234;
  font: 14px/1.5 sans-serif; }
h1 { margin: 32px 0 4px; font-size: 22px; }
h2 { margin: 40px 0 12px; padding-top: 16px; border-top: 1px solid #a4adc0; font-size: 18px; }
h3 { margin: 24px 0 8px; font-size: 15px; }
nav a { display: inline-block; margin-right: 12px; color: #1e2234; }
.group { display: flex; flex-wrap: wrap; align-items: flex-start; margin: 0 -12px; }
figure { margin: 0 -12px; max-width: calc(100% + 24px); }
figcaption { margin: 0 24px -12px; color: #3a4056; font-size: 12px; }
img { display: block; max-width: 100%; height: auto; }
.table { overflow-x: auto; margin-top: 24px; }
table { border-spacing: 0; margin: 0 -8px; }
th { text-align: start; font-size: 12px; }
thead th { padding-left: 12px; }
tbody th { position: sticky; left: 0; padding: 4px 8px; background: #cfd5e2; vertical-align: top; z-index: 1; }
td { min-width: 200px; vertical-align: top; }
</style>
<h1>%1</h1>
)"_s;

const auto firstLanguage = u"en"_s;
const auto languages = u"languages"_s;

QString titleOf(const QString &section) {
    static const std::map<QString, QString> titles {
        { languages, u"Every language"_s },
        { u"brands"_s, u"Other brands"_s },
        { u"texts"_s, u"Short, long and odd texts"_s },
        { u"scale2"_s, u"Scale 2"_s },
        { u"text14"_s, u"Text of 14 points"_s },
        { u"text20"_s, u"Text of 20 points"_s },
    };
    return titles.at(section);
}

using Pictures = std::vector<const Picture *>;

QString image(const Picture &picture) {
    return u"<a href=\"%1\"><img src=\"%1\" srcset=\"%1 %2x\" alt=\"%3 %4\" loading=\"lazy\"></a>"_s.arg(
        picture.path().toHtmlEscaped(), QString::number(picture.scale), picture.group.toHtmlEscaped(),
        picture.name.toHtmlEscaped());
}

QString group(const QString &title, const Pictures &pictures) {
    auto html = u"<h3>%1</h3>\n<div class=\"group\">\n"_s.arg(title.toHtmlEscaped());
    for (const auto *picture : pictures)
        html += u"<figure><figcaption>%1</figcaption>%2</figure>\n"_s.arg(
            picture->name.toHtmlEscaped(), image(*picture));
    return html + u"</div>\n"_s;
}

// One row a language, one column a notice.
QString table(const std::map<QString, Pictures> &groups) {
    QString links;
    QString rows;
    for (const auto &[code, pictures] : groups) {
        const auto language = code.toHtmlEscaped();
        links += u"<a href=\"#language-%1\">%1</a>"_s.arg(language);
        rows += u"<tr id=\"language-%1\"><th>%1</th>"_s.arg(language);
        for (const auto *picture : pictures)
            rows += u"<td>%1</td>"_s.arg(image(*picture));
        rows += u"</tr>\n"_s;
    }
    QString heads;
    for (const auto *picture : groups.begin()->second)
        heads += u"<th>%1</th>"_s.arg(picture->name.toHtmlEscaped());
    return u"<nav>%1</nav>\n<div class=\"table\"><table><thead><tr><th></th>%2</tr></thead>\n"
           "<tbody>\n%3</tbody></table></div>\n"_s.arg(links, heads, rows);
}

QString section(const QString &name, const Pictures &pictures) {
    std::map<QString, Pictures> groups;
    for (const auto *picture : pictures)
        groups[picture->group].push_back(picture);
    auto html = u"<h2 id=\"%1\">%2</h2>\n"_s.arg(name, titleOf(name));
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
    auto page = beginning.arg(title.toHtmlEscaped()) + u"<p>%1 pictures.</p>\n<nav>"_s.arg(pictures.size());
    for (const auto &name : names)
        page += u"<a href=\"#%1\">%2</a>"_s.arg(name, titleOf(name));
    page += u"</nav>\n"_s;
    for (const auto &name : names)
        page += section(name, sections[name]);
    return (page + u"</html>\n"_s).toUtf8();
}
