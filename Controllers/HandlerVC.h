#pragma once

#include "Controllers/NoticeServices.h"
#include "Platform/NoticeController.h"
#include "Platform/Views/ImageView.h"
#include "Platform/Views/LayerView.h"
#include "Platform/Views/PushButton.h"
#include "Platform/Views/TextField.h"
#include "Support/Logger.h"

/// What the re-authentication and the auto-disconnect notice share: outlets, appearing, the first steps of
/// the set-up, and where a countdown starts. Main thread only.
class HandlerVC : public NoticeController {
public:
    Outlet<LayerView> headerView { *this, "headerView" };
    Outlet<ImageView> headerLogoImageView { *this, "headerLogoImageView" };
    /// In the form the button bears the name of its action.
    Outlet<PushButton> okayActionButton { *this, "okayAction" };
    Outlet<TextField> timerLabel { *this, "timerLabel" };

    void viewWillAppear() override;
    virtual void setupUI() = 0;
    virtual void okayAction() = 0;

protected:
    static constexpr std::int64_t countdownSeconds = 30;

    HandlerVC(const char *className, LogSource logSource, const NoticeServices &services);

    /// Logs the payload, and puts branding, button style and logo in place.
    void beginSetup();

    void buttonClicked() override { okayAction(); }

    NoticeServices services_;
    LogSource logSource_;
};
