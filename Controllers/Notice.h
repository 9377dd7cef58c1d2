#pragma once

#include "Controllers/NoticeServices.h"
#include "Platform/NoticeController.h"
#include "Platform/Views/ImageView.h"
#include "Platform/Views/PushButton.h"
#include "Platform/Views/TextField.h"
#include "Support/Logger.h"

/// The base of the five notices: the header, and the steps that several of them take in the same way. Each
/// notice decides by itself which steps it takes, and in which order. Main thread only.
class Notice : public NoticeController {
public:
    Outlet<LayerView> headerView { *this, "headerView" };
    Outlet<ImageView> headerLogoImageView { *this, "headerLogoImageView" };

protected:
    Notice(const char *className, LogSource logSource, const NoticeServices &services);

    /// On appearing: transparent when the payload's "WebSocketType" is the boolean true, visible otherwise.
    void setWindowAlphaFromPayload();

    /// The brand's logo and header colour, and a white root view.
    void brandHeader();

    /// Replaces the logo with the payload's image, and logs it, when "HeaderLogoImage" is binary data; bytes
    /// that are no image clear the logo. Without such data the outlet is not touched.
    void setLogoFromPayload(const char *function);

    static void styleOkButton(PushButton &button);

    /// The title bar becomes transparent, and the window's background gets that colour.
    void styleWindow(const QColor &background);

    /// Black for one vendor, compared exactly; the accent colour's value otherwise.
    static QColor vendorWindowBackground();

    /// The text of a key in the default table, in the language in force; without a translation the key.
    QString localized(const char *key) const;

    /// Ends the application one second from now. Holds the controller.
    void terminateAfterDelay();

    /// Hides the window and ends the application at once.
    void closeAndTerminate();

    NoticeServices services_;
    LogSource logSource_;
};

/// What the re-authentication and the auto-disconnect notice share. Main thread only.
class HandlerVC : public Notice {
public:
    /// In the form the button bears the name of its action.
    Outlet<PushButton> okayActionButton { *this, "okayAction" };
    Outlet<TextField> timerLabel { *this, "timerLabel" };

    void viewWillAppear() override;
    virtual void setupUI() = 0;
    virtual void okayAction() = 0;

protected:
    static constexpr std::int64_t countdownSeconds = 30;

    using Notice::Notice;

    /// Logs the payload, and puts branding, button style and logo in place.
    void beginSetup();

    void buttonClicked() override { okayAction(); }
};
