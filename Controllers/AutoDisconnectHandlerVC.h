#pragma once

#include "Controllers/NoticeServices.h"
#include "Platform/NoticeController.h"
#include "Platform/Views/ImageView.h"
#include "Platform/Views/LayerView.h"
#include "Platform/Views/PushButton.h"
#include "Platform/Views/TextField.h"

/// The auto-disconnect notice: the VPN is being, or has been, disconnected by policy. It counts down only
/// while the VPN is still connected, and sends nothing back. Main thread only.
class AutoDisconnectHandlerVC final : public NoticeController {
public:
    explicit AutoDisconnectHandlerVC(const NoticeServices &services);

    Outlet<LayerView> headerView { *this, "headerView" };
    Outlet<ImageView> headerLogoImageView { *this, "headerLogoImageView" };
    Outlet<TextField> policyDisconnectLabel { *this, "policyDisconnectLabel" };
    Outlet<TextField> headerLabel { *this, "headerLabel" };
    /// In the form the button bears the name of its action.
    Outlet<PushButton> okayActionButton { *this, "okayAction" };
    Outlet<TextField> timerLabel { *this, "timerLabel" };

    void viewDidLoad() override;
    void viewWillAppear() override;

    void setupUI();
    void okayAction();

private:
    void startCountdown();
    QString countdownLine(std::int64_t secondsLeft) const;
    QString localized(const char *key) const;

    NoticeServices services_;
};
