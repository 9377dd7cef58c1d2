#include "Tools/Gallery/Catalogue.h"

#include "Support/CustomAPPManager.h"
#include "Tools/Gallery/SampleTexts.h"

#include <utility>

namespace {

using Translated = std::function<QString(const QString &language, const QString &text)>;
using Rows = std::vector<std::pair<QString, QString>>;

struct Notice {
    QString name;
    QVariantMap message;
};

QString element(const QString &name, const QString &text) {
    return u'<' + name + u'>' + text.toHtmlEscaped() + QStringLiteral("</") + name + u'>';
}

QString noticeXml(const QString &module, const QString &head, const QString &body, const Rows &rows = {}) {
    QString entries;
    for (const auto &[name, value] : rows)
        entries += QStringLiteral("<md>") + element(QStringLiteral("name"), name)
            + element(QStringLiteral("val"), value) + QStringLiteral("</md>");
    return QStringLiteral("<zelvik-secure-access><notifications>") + element(QStringLiteral("module"), module)
        + element(QStringLiteral("head"), head) + element(QStringLiteral("body"), body)
        + element(QStringLiteral("timeout"), QStringLiteral("10")) + QStringLiteral("<metadata>") + entries
        + QStringLiteral("</metadata></notifications></zelvik-secure-access>");
}

QVariantMap inLanguage(const QString &language, QVariantMap message) {
    message.insert(CustomAPPManager::webSocketappLanguageKey, language);
    return message;
}

QVariantMap casb(const QString &head, const QString &body, const Rows &rows) {
    return { { CustomAPPManager::webSocketResponse,
        noticeXml(QStringLiteral("Cloud Access Policy"), head, body, rows) } };
}

// A client names the rows in the user's language.
Rows threeRows(const QString &language, const QString &activity, const Translated &translated) {
    return { { translated(language, QStringLiteral("Activity")), activity },
        { translated(language, QStringLiteral("Application")), QStringLiteral("Example Drive") },
        { translated(language, QStringLiteral("URL")),
            QStringLiteral("https://drive.example.com/upload/session?id=8f2c41d7") } };
}

std::vector<Notice> allNotices(const QString &language, const Translated &translated) {
    const auto texts = SampleTexts::in(language);
    std::vector<Notice> notices {
        { QStringLiteral("casb"),
            casb(texts.head, texts.body, threeRows(language, texts.upload, translated)) },
        { QStringLiteral("re-authentication"), { { CustomAPPManager::WebSocketReAuthType, true } } },
        { QStringLiteral("auto-disconnect"),
            { { CustomAPPManager::AutoDisconnectWebSocketType, true },
                { CustomAPPManager::AutoDisconnectVPNStatus, true },
                { CustomAPPManager::AutoDisconnectMessageKey, texts.disconnect } } },
        { QStringLiteral("auto-disconnected"),
            { { CustomAPPManager::AutoDisconnectWebSocketType, true },
                { CustomAPPManager::AutoDisconnectMessageKey, texts.disconnected } } },
        { QStringLiteral("concurrent-session"),
            { { CustomAPPManager::WebSocketAdminDisconnect, true },
                { CustomAPPManager::webSocketResponse,
                    noticeXml(QStringLiteral("Session Control"), texts.sessionHead, texts.sessionBody) } } },
        { QStringLiteral("maintenance"),
            { { CustomAPPManager::WebSocketType, true },
                { CustomAPPManager::MaintenanceMessageKey, texts.maintenance } } },
    };
    for (auto &notice : notices)
        notice.message = inLanguage(language, notice.message);
    return notices;
}

Brand ofBundle() {
    return { .name = QStringLiteral("bundle"), .vendor = {}, .header = {}, .logo = {} };
}

std::vector<Brand> otherBrands() {
    const QColor dark(30, 34, 52);
    return {
        { QStringLiteral("korvane"), false, QStringLiteral("KORVANE"), QColor(0xF2, 0xF4, 0xF8), dark },
        { QStringLiteral("light"), false, QStringLiteral("Lumora"), QColor(0xFF, 0xFF, 0xFF), dark },
        { QStringLiteral("middle"), false, QStringLiteral("Meridan"), QColor(0x6E, 0x7B, 0x91), Qt::white },
    };
}

// Lengths and scripts that a message may bring.
std::vector<Notice> oddTexts(const QString &language, const Translated &translated) {
    const auto texts = SampleTexts::in(language);
    const auto rows = threeRows(language, texts.upload, translated);
    const auto repeated
        = [](const QString &text, int times) { return QString(text + u' ').repeated(times).trimmed(); };
    const auto word = QStringLiteral("Donaudampfschifffahrt").repeated(24).left(500);
    const auto url = QString(QStringLiteral("https://drive.example.com/")
        + QStringLiteral("folder-with-a-long-name/").repeated(170))
                         .left(4000);
    const auto emoji = QStringLiteral(
        "Upload 🚀 blocked 🛑 for 👩‍💻 and 👨‍👩‍👧‍👦 in 🇩🇪: café, naïve, "
        "Z̈a͡l g̃ö, ẹ́ 👍🏽");
    const auto cjk = QStringLiteral(
        "組織の方針により、個人用ストレージへのファイルのアップロードは許可されていません。文件未发送。"
        "파일이 전송되지 않았습니다. 如需存取權限，請聯絡您的系統管理員。");
    const auto thai = QStringLiteral("องค์กรของคุณไม่อนุญาตให้อัปโหลดไฟล์ไปยังที่เก็บข้อมูลส่วนตัว ไฟล์ไม่ได้ถูกส่ง "
                                     "โปรดติดต่อผู้ดูแลระบบหากคุณต้องการสิทธิ์เข้าถึง");
    const auto mixed = QStringLiteral("The file ملف.pdf (12 MB) was not sent to שלום@example.com.\n"
                                      "لم يُرسل الملف report-2024.pdf إلى Example Drive (3/4).\n"
                                      "Ask the help desk: +49 30 1234-5678.");
    std::vector<Notice> notices {
        { QStringLiteral("no-rows"), casb(texts.head, texts.body, {}) },
        { QStringLiteral("one-row"), casb(texts.head, texts.body, { rows[0] }) },
        { QStringLiteral("two-rows"), casb(texts.head, texts.body, { rows[0], rows[1] }) },
        { QStringLiteral("empty-value"),
            casb(texts.head, texts.body, { rows[0], { rows[1].first, {} }, rows[2] }) },
        { QStringLiteral("no-activity"),
            casb(texts.head, texts.body, { { rows[0].first, {} }, rows[1], rows[2] }) },
        { QStringLiteral("short"), casb(QStringLiteral("!"), QStringLiteral("."), rows) },
        { QStringLiteral("long-body"), casb(texts.head, repeated(texts.body, 80), rows) },
        { QStringLiteral("long-title"), casb(repeated(texts.head, 40).left(300), texts.body, rows) },
        { QStringLiteral("long-word"), casb(texts.head, word, { { word, word }, rows[1], rows[2] }) },
        { QStringLiteral("long-url"),
            casb(texts.head, texts.body, { rows[0], rows[1], { rows[2].first, url } }) },
        { QStringLiteral("emoji"), casb(emoji, emoji, { { rows[0].first, emoji }, rows[1], rows[2] }) },
        { QStringLiteral("cjk"), casb(cjk.left(20), cjk, { { rows[0].first, cjk }, rows[1], rows[2] }) },
        { QStringLiteral("thai"), casb(thai.left(40), thai, { { rows[0].first, thai }, rows[1], rows[2] }) },
        { QStringLiteral("mixed"),
            casb(mixed.section(u'\n', 0, 0), mixed, { { rows[0].first, mixed }, rows[1], rows[2] }) },
        { QStringLiteral("long-maintenance"),
            { { CustomAPPManager::WebSocketType, true },
                { CustomAPPManager::MaintenanceMessageKey, repeated(texts.maintenance, 30) } } },
        { QStringLiteral("empty-maintenance"), { { CustomAPPManager::WebSocketType, true } } },
        { QStringLiteral("wide-logo"), casb(texts.head, texts.body, rows) },
        { QStringLiteral("square-logo"), casb(texts.head, texts.body, rows) },
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
        add(QStringLiteral("languages"), language, ofBundle(), 1, allNotices(language, translated));
    // Both directions of writing are enough for the rest.
    QStringList directions;
    for (const auto *language : { "en", "ar" }) {
        if (languages.contains(QLatin1String(language)))
            directions << QLatin1String(language);
    }
    for (const auto &language : std::as_const(directions)) {
        for (const auto &brand : otherBrands())
            add(QStringLiteral("brands"), brand.name + u'-' + language, brand, 1,
                allNotices(language, translated));
    }
    for (const auto &language : std::as_const(directions))
        add(QStringLiteral("texts"), language, ofBundle(), 1, oddTexts(language, translated));
    for (const auto &language : std::as_const(directions)) {
        add(QStringLiteral("scale2"), language, ofBundle(), 2, allNotices(language, translated));
        add(QStringLiteral("scale2"), otherBrands()[0].name + u'-' + language, otherBrands()[0], 2,
            allNotices(language, translated));
    }
    for (const int points : { 14, 20 }) {
        for (const auto *language : { "en", "de", "ar" }) {
            const auto code = QString::fromLatin1(language);
            if (languages.contains(code))
                add(QStringLiteral("text%1").arg(points), code, ofBundle(), 1, allNotices(code, translated),
                    points);
        }
    }
    return pictures;
}
