#pragma once

#include "Controllers/Notice.h"

/// The auto-disconnect notice: the VPN is being, or has been, disconnected by policy. It counts down only
/// while the VPN is still connected, and sends nothing back. Main thread only.
class AutoDisconnectHandlerVC final : public HandlerVC {
public:
    explicit AutoDisconnectHandlerVC(const NoticeServices &services);

    Outlet<TextField> policyDisconnectLabel { *this, "policyDisconnectLabel" };
    Outlet<TextField> headerLabel { *this, "headerLabel" };

    void setupUI() override;
    void okayAction() override;

private:
    void startCountdown();
    QString countdownText(std::int64_t secondsLeft) const;
};
