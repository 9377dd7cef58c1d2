#include "Tools/Gallery/SampleTexts.h"

#include <array>

namespace {

struct Entry {
    const char *language;
    const char *head;
    const char *body;
    const char *upload;
    const char *disconnect;
    const char *maintenance;
};

constexpr std::array entries {
    Entry { "en", "Upload blocked",
        "Your organisation does not allow files to be uploaded to personal storage. The file was not sent. "
        "Ask your "
        "administrator if you need access.",
        "Upload", "The VPN will be disconnected by your organisation's policy.",
        "The service will be unavailable on Saturday from 22:00 to 23:30 while we upgrade the gateways. Your "
        "connection is restored by itself." },
    Entry { "ar", "تم حظر الرفع",
        "لا تسمح مؤسستك برفع الملفات إلى التخزين الشخصي. لم يُرسل الملف. تواصل مع المسؤول إذا كنت بحاجة إلى "
        "الوصول.",
        "رفع", "سيتم قطع اتصال الشبكة الخاصة الافتراضية وفقًا لسياسة مؤسستك.",
        "لن تكون الخدمة متاحة يوم السبت من 22:00 إلى 23:30 أثناء ترقية البوابات. سيُستعاد اتصالك تلقائيًا." },
    Entry { "bg", "Качването е блокирано",
        "Вашата организация не позволява качване на файлове в лично хранилище. Файлът не беше изпратен.",
        "Качване", "VPN връзката ще бъде прекъсната според правилата на вашата организация.",
        "Услугата няма да е достъпна в събота от 22:00 до 23:30, докато обновяваме шлюзовете." },
    Entry { "cs", "Nahrávání zablokováno",
        "Vaše organizace nepovoluje nahrávání souborů do osobního úložiště. Soubor nebyl odeslán.",
        "Nahrávání", "Síť VPN bude odpojena podle zásad vaší organizace.",
        "Služba nebude v sobotu od 22:00 do 23:30 dostupná, protože modernizujeme brány." },
    Entry { "da", "Upload blokeret",
        "Din organisation tillader ikke, at filer uploades til privat lager. Filen blev ikke sendt.",
        "Upload", "VPN-forbindelsen afbrydes i henhold til din organisations politik.",
        "Tjenesten er ikke tilgængelig lørdag fra 22.00 til 23.30, mens vi opgraderer gatewayene." },
    Entry { "de", "Hochladen blockiert",
        "Ihre Organisation erlaubt nicht, dass Dateien in persönliche Speicher hochgeladen werden. Die Datei "
        "wurde "
        "nicht gesendet. Wenden Sie sich an Ihre Administration, wenn Sie Zugriff brauchen.",
        "Hochladen", "Die VPN-Verbindung wird gemäß den Richtlinien Ihrer Organisation getrennt.",
        "Der Dienst ist am Samstag von 22:00 bis 23:30 Uhr nicht verfügbar, während wir die Gateways "
        "erneuern. Ihre "
        "Verbindung wird von selbst wiederhergestellt." },
    Entry { "el", "Η μεταφόρτωση αποκλείστηκε",
        "Ο οργανισμός σας δεν επιτρέπει τη μεταφόρτωση αρχείων σε προσωπικό χώρο. Το αρχείο δεν στάλθηκε.",
        "Μεταφόρτωση", "Το VPN θα αποσυνδεθεί σύμφωνα με την πολιτική του οργανισμού σας.",
        "Η υπηρεσία δεν θα είναι διαθέσιμη το Σάββατο από τις 22:00 έως τις 23:30." },
    Entry { "es", "Carga bloqueada",
        "Su organización no permite cargar archivos en almacenamiento personal. El archivo no se ha enviado.",
        "Carga", "La VPN se desconectará según la política de su organización.",
        "El servicio no estará disponible el sábado de 22:00 a 23:30 mientras actualizamos las puertas de "
        "enlace." },
    Entry { "fa", "بارگذاری مسدود شد",
        "سازمان شما بارگذاری پرونده در فضای شخصی را مجاز "
        "نمی‌داند. "
        "پرونده "
        "فرستاده "
        "نشد.",
        "بارگذاری", "اتصال VPN طبق سیاست سازمان شما قطع می‌شود.",
        "این سرویس روز شنبه از ساعت 22:00 تا 23:30 در دسترس نخواهد بود." },
    Entry { "fi", "Lähetys estetty",
        "Organisaatiosi ei salli tiedostojen lähettämistä henkilökohtaiseen tallennustilaan. Tiedostoa ei "
        "lähetetty.",
        "Lähetys", "VPN-yhteys katkaistaan organisaatiosi käytännön mukaisesti.",
        "Palvelu ei ole käytettävissä lauantaina klo 22.00–23.30, kun päivitämme yhdyskäytäviä." },
    Entry { "fr", "Envoi bloqué",
        "Votre organisation n’autorise pas l’envoi de fichiers vers un stockage personnel. Le fichier n’a "
        "pas été "
        "envoyé.",
        "Envoi", "Le VPN sera déconnecté conformément à la politique de votre organisation.",
        "Le service sera indisponible samedi de 22 h à 23 h 30 pendant la mise à niveau des passerelles." },
    Entry { "he", "ההעלאה נחסמה", "הארגון שלך אינו מתיר העלאת קבצים לאחסון אישי. הקובץ לא נשלח.", "העלאה",
        "חיבור ה-VPN ינותק לפי מדיניות הארגון שלך.",
        "השירות לא יהיה זמין בשבת בין 22:00 ל-23:30 בזמן שדרוג השערים. החיבור ישוחזר מעצמו." },
    Entry { "hi", "अपलोड रोका गया",
        "आपका संगठन व्यक्तिगत संग्रहण में फ़ाइलें अपलोड करने की अनुमति नहीं देता। फ़ाइल नहीं भेजी गई।", "अपलोड",
        "आपके संगठन की नीति के अनुसार VPN डिस्कनेक्ट किया जाएगा।",
        "गेटवे के उन्नयन के दौरान शनिवार को 22:00 से 23:30 तक सेवा उपलब्ध नहीं होगी।" },
    Entry { "hr", "Prijenos blokiran",
        "Vaša organizacija ne dopušta prijenos datoteka u osobnu pohranu. Datoteka nije poslana.", "Prijenos",
        "VPN će biti isključen prema pravilima vaše organizacije.",
        "Usluga neće biti dostupna u subotu od 22:00 do 23:30 dok nadograđujemo pristupnike." },
    Entry { "hu", "Feltöltés letiltva",
        "Szervezete nem engedélyezi fájlok feltöltését személyes tárhelyre. A fájl nem lett elküldve.",
        "Feltöltés", "A VPN-kapcsolat a szervezet házirendje szerint megszakad.",
        "A szolgáltatás szombaton 22:00 és 23:30 között nem lesz elérhető, amíg frissítjük az átjárókat." },
    Entry { "id", "Unggahan diblokir",
        "Organisasi Anda tidak mengizinkan file diunggah ke penyimpanan pribadi. File tidak dikirim.",
        "Unggah", "VPN akan diputus sesuai kebijakan organisasi Anda.",
        "Layanan tidak tersedia pada hari Sabtu pukul 22.00 hingga 23.30 selama pemutakhiran gateway." },
    Entry { "it", "Caricamento bloccato",
        "La tua organizzazione non consente di caricare file in archivi personali. Il file non è stato "
        "inviato.",
        "Caricamento", "La VPN verrà disconnessa in base ai criteri della tua organizzazione.",
        "Il servizio non sarà disponibile sabato dalle 22:00 alle 23:30 per l’aggiornamento dei gateway." },
    Entry { "ja", "アップロードをブロックしました",
        "組織の方針により、個人用ストレージへのファイルのアップロードは許可されていません。ファイルは送信され"
        "ませんでした。",
        "アップロード", "組織の方針により、VPN は切断されます。",
        "土曜日の 22:00 から 23:30 まで、ゲートウェイの更新のためサービスを利用できません。" },
    Entry { "ko", "업로드 차단됨",
        "조직에서 개인 저장소로의 파일 업로드를 허용하지 않습니다. 파일이 전송되지 않았습니다.", "업로드",
        "조직의 정책에 따라 VPN 연결이 끊어집니다.",
        "토요일 22:00부터 23:30까지 게이트웨이를 업그레이드하는 동안 서비스를 이용할 수 없습니다." },
    Entry { "ms", "Muat naik disekat",
        "Organisasi anda tidak membenarkan fail dimuat naik ke storan peribadi. Fail tidak dihantar.",
        "Muat naik", "VPN akan diputuskan mengikut dasar organisasi anda.",
        "Perkhidmatan tidak tersedia pada hari Sabtu dari 22:00 hingga 23:30 semasa get laluan dinaik "
        "taraf." },
    Entry { "nb", "Opplasting blokkert",
        "Organisasjonen din tillater ikke at filer lastes opp til privat lagring. Filen ble ikke sendt.",
        "Opplasting", "VPN-forbindelsen kobles fra i henhold til organisasjonens retningslinjer.",
        "Tjenesten er ikke tilgjengelig lørdag fra 22.00 til 23.30 mens vi oppgraderer portene." },
    Entry { "nl", "Uploaden geblokkeerd",
        "Uw organisatie staat niet toe dat bestanden naar persoonlijke opslag worden geüpload. Het bestand "
        "is niet "
        "verzonden.",
        "Uploaden", "De VPN-verbinding wordt verbroken volgens het beleid van uw organisatie.",
        "De dienst is zaterdag van 22.00 tot 23.30 uur niet beschikbaar terwijl we de gateways vernieuwen." },
    Entry { "pl", "Przesyłanie zablokowane",
        "Twoja organizacja nie zezwala na przesyłanie plików do pamięci osobistej. Plik nie został wysłany.",
        "Przesyłanie", "Połączenie VPN zostanie rozłączone zgodnie z zasadami organizacji.",
        "Usługa będzie niedostępna w sobotę od 22:00 do 23:30 podczas modernizacji bram." },
    Entry { "pt-BR", "Upload bloqueado",
        "Sua organização não permite o upload de arquivos para armazenamento pessoal. O arquivo não foi "
        "enviado.",
        "Upload", "A VPN será desconectada de acordo com a política da sua organização.",
        "O serviço ficará indisponível no sábado, das 22h às 23h30, durante a atualização dos gateways." },
    Entry { "pt-PT", "Carregamento bloqueado",
        "A sua organização não permite o carregamento de ficheiros para armazenamento pessoal. O ficheiro "
        "não foi "
        "enviado.",
        "Carregamento", "A VPN será desligada de acordo com a política da sua organização.",
        "O serviço estará indisponível no sábado, das 22:00 às 23:30, durante a atualização dos gateways." },
    Entry { "ro", "Încărcare blocată",
        "Organizația dvs. nu permite încărcarea fișierelor în spații personale. Fișierul nu a fost trimis.",
        "Încărcare", "Conexiunea VPN va fi întreruptă conform politicii organizației dvs.",
        "Serviciul nu va fi disponibil sâmbătă între 22:00 și 23:30, cât timp actualizăm gateway-urile." },
    Entry { "ru", "Отправка заблокирована",
        "Ваша организация не разрешает отправлять файлы в личные хранилища. Файл не был отправлен.",
        "Отправка", "VPN-подключение будет разорвано согласно политике вашей организации.",
        "Служба будет недоступна в субботу с 22:00 до 23:30 на время обновления шлюзов." },
    Entry { "sk", "Nahrávanie zablokované",
        "Vaša organizácia nepovoľuje nahrávanie súborov do osobného úložiska. Súbor nebol odoslaný.",
        "Nahrávanie", "Sieť VPN bude odpojená podľa zásad vašej organizácie.",
        "Služba nebude v sobotu od 22:00 do 23:30 dostupná, pretože modernizujeme brány." },
    Entry { "sv", "Uppladdning blockerad",
        "Din organisation tillåter inte att filer laddas upp till privat lagring. Filen skickades inte.",
        "Uppladdning", "VPN-anslutningen kopplas från enligt organisationens policy.",
        "Tjänsten är inte tillgänglig på lördag mellan 22.00 och 23.30 medan vi uppgraderar portarna." },
    Entry { "th", "บล็อกการอัปโหลด",
        "องค์กรของคุณไม่อนุญาตให้อัปโหลดไฟล์ไปยังที่เก็บข้อมูลส่วนตัว ไฟล์ไม่ได้ถูกส่ง โปรดติดต่อผู้ดูแลระบบหากคุณต้องการสิทธิ์เข้าถึง",
        "อัปโหลด", "VPN จะถูกตัดการเชื่อมต่อตามนโยบายขององค์กรของคุณ",
        "บริการจะไม่พร้อมใช้งานในวันเสาร์ เวลา 22:00 ถึง 23:30 น. ขณะอัปเกรดเกตเวย์" },
    Entry { "tr", "Yükleme engellendi",
        "Kuruluşunuz dosyaların kişisel depolamaya yüklenmesine izin vermiyor. Dosya gönderilmedi.",
        "Yükleme", "VPN bağlantısı kuruluşunuzun ilkesine göre kesilecek.",
        "Ağ geçitleri yükseltilirken hizmet cumartesi 22.00–23.30 arasında kullanılamayacak." },
    Entry { "uk", "Надсилання заблоковано",
        "Ваша організація не дозволяє надсилати файли до особистих сховищ. Файл не надіслано.", "Надсилання",
        "VPN-з’єднання буде розірвано згідно з політикою вашої організації.",
        "Служба буде недоступна в суботу з 22:00 до 23:30 на час оновлення шлюзів." },
    Entry { "vi", "Đã chặn tải lên",
        "Tổ chức của bạn không cho phép tải tệp lên bộ nhớ cá nhân. Tệp chưa được gửi.", "Tải lên",
        "VPN sẽ bị ngắt kết nối theo chính sách của tổ chức bạn.",
        "Dịch vụ sẽ không khả dụng vào thứ Bảy từ 22:00 đến 23:30 trong khi chúng tôi nâng cấp cổng." },
    Entry { "zh-Hans", "已阻止上传",
        "您的组织不允许将文件上传到个人存储。文件未发送。如需访问权限，请联系管理员。", "上传",
        "根据您组织的策略，VPN 将断开连接。",
        "周六 22:00 至 23:30 升级网关期间，服务不可用。您的连接会自动恢复。" },
    Entry { "zh-Hant", "已封鎖上傳",
        "您的組織不允許將檔案上傳到個人儲存空間。檔案未傳送。如需存取權限，請聯絡管理員。", "上傳",
        "根據您組織的原則，VPN 將中斷連線。",
        "週六 22:00 至 23:30 升級閘道期間，服務無法使用。您的連線會自動恢復。" },
};

SampleTexts texts(const Entry &entry) {
    return { QString::fromUtf8(entry.head), QString::fromUtf8(entry.body), QString::fromUtf8(entry.upload),
        QString::fromUtf8(entry.disconnect), QString::fromUtf8(entry.maintenance) };
}

} // namespace

SampleTexts SampleTexts::in(const QString &language) {
    for (const auto &entry : entries) {
        if (language == QLatin1String(entry.language))
            return texts(entry);
    }
    return texts(entries.front());
}
