#pragma once

#include "Contract/Message.h"

#include <QByteArray>
#include <QColor>
#include <QString>
#include <QVariantMap>

#include <optional>

class Bundle;

/// The home of the process-wide state: the settings of the brand, the payload of the latest message, and the
/// names of its keys. Main thread only; the values made on first use are made once from any thread.
class CustomAPPManager {
public:
    /// Made on first need.
    static CustomAPPManager &sharedInstance();

    // The keys of a message's user info.
    static constexpr QLatin1String webSocketResponse { Contract::webSocketResponse.data() };
    static constexpr QLatin1String MaintenanceMessageKey { Contract::MaintenanceMessageKey.data() };
    static constexpr QLatin1String HeaderLogoImage { Contract::HeaderLogoImage.data() };
    static constexpr QLatin1String WebSocketType { Contract::WebSocketType.data() };
    static constexpr QLatin1String WebSocketAdminDisconnect { Contract::WebSocketAdminDisconnect.data() };
    static constexpr QLatin1String AutoDisconnectWebSocketType {
        Contract::AutoDisconnectWebSocketType.data()
    };
    static constexpr QLatin1String AutoDisconnectMessageKey { Contract::AutoDisconnectMessageKey.data() };
    static constexpr QLatin1String AutoDisconnectVPNStatus { Contract::AutoDisconnectVPNStatus.data() };
    static constexpr QLatin1String webSocketappLanguageKey { Contract::webSocketappLanguageKey.data() };
    static constexpr QLatin1String WebSocketReAuthType { Contract::WebSocketReAuthType.data() };

    /// The user info of the latest message, replaced whole by each; empty before the first.
    inline static QVariantMap payload;

    /// True only for a boolean true.
    static bool flag(QLatin1String key);
    /// Empty when the value is absent or no string.
    static QString string(QLatin1String key);
    /// Nothing when the value is absent or no string.
    static std::optional<QString> optionalString(QLatin1String key);
    /// Nothing when the value is absent or no binary data.
    static std::optional<QByteArray> data(QLatin1String key);

    // The settings; empty until they have been loaded once.
    inline static QString AppLogo;
    inline static QString Vendor;
    inline static QString LogFolderName;
    inline static QString globalAppViewBackgroundColor; ///< as hex text
    inline static QString logFilePath;

    /// Reads the property list "Application_Shared" of the bundle. When there is none, or it cannot be read,
    /// every setting keeps its value; a key that is missing or no string takes its default.
    static void loadSettings(const Bundle &bundle);

    /// The one fixed colour that the notices share.
    static const QColor &noticeAccentColor();

    /// The name of the notification back to the main client. Fixed at its first use, from the vendor word of
    /// that moment.
    static const QString &mainAppNotifierName();

private:
    CustomAPPManager() = default;
};
