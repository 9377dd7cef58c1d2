// The settings file, from its bytes to the settings.

#include "Platform/PropertyList.h"
#include "Fuzz/Check.h"
#include "Platform/Bundle.h"
#include "Support/CustomAPPManager.h"

#include <cstddef>
#include <cstdint>
#include <utility>

#include <sys/mman.h>
#include <unistd.h>

namespace {

/// A bundle whose every resource is one file in memory.
class OneFileBundle final : public Bundle {
public:
    explicit OneFileBundle(QString path)
        : path_(std::move(path)) { }

    std::optional<QString> pathForResource(const QString &, const QString &) const override { return path_; }
    QVariant objectForInfoDictionaryKey(const QString &) const override { return {}; }
    QString localizedStringForKey(const QString &key, const QString &, const QString &) const override {
        return key;
    }
    QString localization() const override { return {}; }
    std::unique_ptr<Bundle> bundleWithPath(const QString &) const override { return nullptr; }

private:
    QString path_;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static const int file = ::memfd_create("settings", MFD_CLOEXEC);
    static const OneFileBundle bundle(QStringLiteral("/proc/self/fd/%1").arg(file));
    check(::ftruncate(file, 0) == 0);
    check(::pwrite(file, data, size, 0) == static_cast<ssize_t>(size));

    CustomAPPManager::AppLogo = CustomAPPManager::Vendor = CustomAPPManager::LogFolderName
        = CustomAPPManager::logFilePath = QString();
    CustomAPPManager::loadSettings(bundle);
    const auto list = PropertyList::read(*bundle.pathForResource({}, {}));
    const bool isDictionary = list && list->metaType().id() == QMetaType::QVariantMap;
    check(CustomAPPManager::logFilePath.isEmpty() == !isDictionary);
    return 0;
}
