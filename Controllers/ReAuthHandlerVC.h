#pragma once

#include "Controllers/NoticeServices.h"
#include "Platform/NoticeController.h"
#include "Platform/Views/ImageView.h"
#include "Platform/Views/LayerView.h"
#include "Platform/Views/PushButton.h"
#include "Platform/Views/TextField.h"

/// The re-authentication notice: a countdown, at whose end, or on OK, the main client is told that the user
/// is to authenticate again. Main thread only.
class ReAuthHandlerVC final : public NoticeController {
public:
    explicit ReAuthHandlerVC(const NoticeServices &services);

    Outlet<LayerView> headerView { *this, "headerView" };
    Outlet<ImageView> headerLogoImageView { *this, "headerLogoImageView" };
    /// In the form the button bears the name of its action.
    Outlet<PushButton> okayActionButton { *this, "okayAction" };
    Outlet<TextField> timerLabel { *this, "timerLabel" };

    void viewDidLoad() override;
    void viewWillAppear() override;

    void setupUI();
    /// @param mins  where the countdown starts: seconds, whatever the name says
    void createTimer(std::int64_t mins);
    void okayAction();

private:
    void requestReAuthenticationAndQuit(const char *function);

    NoticeServices services_;
};
