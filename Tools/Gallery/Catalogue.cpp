#include "Tools/Gallery/Catalogue.h"

#include "Support/CustomAPPManager.h"
#include "Tools/Gallery/SampleTexts.h"

#include <utility>

using namespace Qt::StringLiterals;

namespace {

using Translated = std::function<QString(const QString &language, const QString &text)>;
using Rows = std::vector<std::pair<QString, QString>>;

struct Notice {
    QString name;
    QVariantMap message;
};

QString element(const QString &name, const QString &text) {
    return u'<' + name + u'>' + text.toHtmlEscaped() + u"</"_s + name + u'>';
}

QString noticeXml(const QString &module, const QString &head, const QString &body, const Rows &rows = {}) {
    QString entries;
    for (const auto &[name, value] : rows)
        entries += u"<md>"_s + element(u"name"_s, name) + element(u"val"_s, value) + u"</md>"_s;
    return u"<zelvik-secure-access><notifications>"_s + element(u"module"_s, module)
        + element(u"head"_s, head) + element(u"body"_s, body) + element(u"timeout"_s, u"10"_s)
        + u"<metadata>"_s + entries + u"</metadata></notifications></zelvik-secure-access>"_s;
}

QVariantMap inLanguage(const QString &language, QVariantMap message) {
    message.insert(CustomAPPManager::webSocketappLanguageKey, language);
    return message;
}

QVariantMap casb(const QString &head, const QString &body, const Rows &rows) {
    return { { CustomAPPManager::webSocketResponse, noticeXml(u"Cloud Access Policy"_s, head, body, rows) } };
}

// A client names the rows in the user's language.
Rows threeRows(const QString &language, const QString &activity, const Translated &translated) {
    return { { translated(language, u"Activity"_s), activity },
        { translated(language, u"Application"_s), u"Example Drive"_s },
        { translated(language, u"URL"_s), u"https://drive.example.com/upload/session?id=8f2c41d7"_s } };
}

std::vector<Notice> allNotices(const QString &language, const Translated &translated) {
    const auto texts = SampleTexts::in(language);
    std::vector<Notice> notices {
        { u"casb"_s, casb(texts.head, texts.body, threeRows(language, texts.upload, translated)) },
        { u"re-authentication"_s, { { CustomAPPManager::WebSocketReAuthType, true } } },
        { u"auto-disconnect"_s,
            { { CustomAPPManager::AutoDisconnectWebSocketType, true },
                { CustomAPPManager::AutoDisconnectVPNStatus, true },
                { CustomAPPManager::AutoDisconnectMessageKey, texts.disconnect } } },
        { u"auto-disconnected"_s,
            { { CustomAPPManager::AutoDisconnectWebSocketType, true },
                { CustomAPPManager::AutoDisconnectMessageKey, texts.disconnected } } },
        { u"concurrent-session"_s,
            { { CustomAPPManager::WebSocketAdminDisconnect, true },
                { CustomAPPManager::webSocketResponse,
                    noticeXml(u"Session Control"_s, texts.sessionHead, texts.sessionBody) } } },
        { u"maintenance"_s,
            { { CustomAPPManager::WebSocketType, true },
                { CustomAPPManager::MaintenanceMessageKey, texts.maintenance } } },
    };
    for (auto &notice : notices)
        notice.message = inLanguage(language, notice.message);
    return notices;
}

Brand ofBundle() {
    return { .name = u"bundle"_s, .vendor = {}, .header = {}, .logo = {} };
}

std::vector<Brand> otherBrands() {
    const QColor dark(30, 34, 52);
    return {
        { u"korvane"_s, false, u"KORVANE"_s, QColor(0xF2, 0xF4, 0xF8), dark },
        { u"light"_s, false, u"Lumora"_s, QColor(0xFF, 0xFF, 0xFF), dark },
        { u"middle"_s, false, u"Meridan"_s, QColor(0x6E, 0x7B, 0x91), Qt::white },
    };
}

// Lengths and scripts that a message may bring.
std::vector<Notice> oddTexts(const QString &language, const Translated &translated) {
    const auto texts = SampleTexts::in(language);
    const auto rows = threeRows(language, texts.upload, translated);
    const auto repeated
        = [](const QString &text, int times) { return QString(text + u' ').repeated(times).trimmed(); };
    const auto word = u"Donaudampfschifffahrt"_s.repeated(24).left(500);
    const auto url
        = QString(u"https://drive.example.com/"_s + u"folder-with-a-long-name/"_s.repeated(170)).left(4000);
    const auto emoji
        = u"Upload 🚀 blocked 🛑 for 👩‍💻 and 👨‍👩‍👧‍👦 in 🇩🇪: café, "
          u"naïve, "
          "Z̈a͡l g̃ö, ẹ́ 👍🏽"_s;
    const auto cjk
        = u"組織の方針により、個人用ストレージへのファイルのアップロードは許可されていません。文件未发送。"
          "파일이 전송되지 않았습니다. 如需存取權限，請聯絡您的系統管理員。"_s;
    const auto thai = u"องค์กรของคุณไม่อนุญาตให้อัปโหลดไฟล์ไปยังที่เก็บข้อมูลส่วนตัว ไฟล์ไม่ได้ถูกส่ง "
                      "โปรดติดต่อผู้ดูแลระบบหากคุณต้องการสิทธิ์เข้าถึง"_s;
    const auto mixed = u"The file ملف.pdf (12 MB) was not sent to שלום@example.com.\n"
                       "لم يُرسل الملف report-2024.pdf إلى Example Drive (3/4).\n"
                       "Ask the help desk: +49 30 1234-5678."_s;
    std::vector<Notice> notices {
        { u"no-rows"_s, casb(texts.head, texts.body, {}) },
        { u"one-row"_s, casb(texts.head, texts.body, { rows[0] }) },
        { u"two-rows"_s, casb(texts.head, texts.body, { rows[0], rows[1] }) },
        { u"empty-value"_s, casb(texts.head, texts.body, { rows[0], { rows[1].first, {} }, rows[2] }) },
        { u"no-activity"_s, casb(texts.head, texts.body, { { rows[0].first, {} }, rows[1], rows[2] }) },
        { u"short"_s, casb(u"!"_s, u"."_s, rows) },
        { u"long-body"_s, casb(texts.head, repeated(texts.body, 80), rows) },
        { u"long-title"_s, casb(repeated(texts.head, 40).left(300), texts.body, rows) },
        { u"long-word"_s, casb(texts.head, word, { { word, word }, rows[1], rows[2] }) },
        { u"long-url"_s, casb(texts.head, texts.body, { rows[0], rows[1], { rows[2].first, url } }) },
        { u"emoji"_s, casb(emoji, emoji, { { rows[0].first, emoji }, rows[1], rows[2] }) },
        { u"cjk"_s, casb(cjk.left(20), cjk, { { rows[0].first, cjk }, rows[1], rows[2] }) },
        { u"thai"_s, casb(thai.left(40), thai, { { rows[0].first, thai }, rows[1], rows[2] }) },
        { u"mixed"_s,
            casb(mixed.section(u'\n', 0, 0), mixed, { { rows[0].first, mixed }, rows[1], rows[2] }) },
        { u"long-maintenance"_s,
            { { CustomAPPManager::WebSocketType, true },
                { CustomAPPManager::MaintenanceMessageKey, repeated(texts.maintenance, 30) } } },
        { u"empty-maintenance"_s, { { CustomAPPManager::WebSocketType, true } } },
        { u"wide-logo"_s, casb(texts.head, texts.body, rows) },
        { u"square-logo"_s, casb(texts.head, texts.body, rows) },
    };
    notices[notices.size() - 2].message.insert(CustomAPPManager::HeaderLogoImage, plainLogo(1600, 64));
    notices[notices.size() - 1].message.insert(CustomAPPManager::HeaderLogoImage, plainLogo(256, 256));
    for (auto &notice : notices)
        notice.message = inLanguage(language, notice.message);
    return notices;
}

} // namespace

std::vector<Picture> catalogue(const QStringList &languages, const Translated &translated) {
    std::vector<Picture> pictures;
    const auto add = [&pictures](const QString &section, const QString &group, const Brand &brand, int scale,
                         const std::vector<Notice> &notices, double textPoints = 10) {
        for (const auto &notice : notices)
            pictures.push_back({ section, group, notice.name, brand, scale, notice.message, textPoints });
    };
    for (const auto &language : languages)
        add(u"languages"_s, language, ofBundle(), 1, allNotices(language, translated));
    // Both directions of writing are enough for the rest.
    QStringList directions;
    for (const auto *language : { "en", "ar" }) {
        if (languages.contains(QLatin1String(language)))
            directions << QLatin1String(language);
    }
    for (const auto &language : std::as_const(directions)) {
        for (const auto &brand : otherBrands())
            add(u"brands"_s, brand.name + u'-' + language, brand, 1, allNotices(language, translated));
    }
    for (const auto &language : std::as_const(directions))
        add(u"texts"_s, language, ofBundle(), 1, oddTexts(language, translated));
    for (const auto &language : std::as_const(directions)) {
        add(u"scale2"_s, language, ofBundle(), 2, allNotices(language, translated));
        add(u"scale2"_s, otherBrands()[0].name + u'-' + language, otherBrands()[0], 2,
            allNotices(language, translated));
    }
    for (const int points : { 14, 20 }) {
        for (const auto *language : { "en", "de", "ar" }) {
            const auto code = QString::fromLatin1(language);
            if (languages.contains(code))
                add(u"text%1"_s.arg(points), code, ofBundle(), 1, allNotices(code, translated), points);
        }
    }
    return pictures;
}
