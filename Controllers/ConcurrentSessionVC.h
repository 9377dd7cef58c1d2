#pragma once

#include "Controllers/NoticeServices.h"
#include "Platform/NoticeController.h"
#include "Platform/Views/ImageView.h"
#include "Platform/Views/LayerView.h"
#include "Platform/Views/PushButton.h"
#include "Platform/Views/TextField.h"

/// The concurrent-session notice: a title and a body from the message's XML, and OK, which ends the
/// application. It uses neither the configured logo nor the configured header colour, and has no vendor rule,
/// deliberately. Main thread only.
class ConcurrentSessionVC final : public NoticeController {
public:
    explicit ConcurrentSessionVC(const NoticeServices &services);

    Outlet<ImageView> headerLogoImageView { *this, "headerLogoImageView" };
    Outlet<LayerView> headerView { *this, "headerView" };
    Outlet<TextField> textMessageLabel { *this, "textMessageLabel" };
    Outlet<TextField> headerTextLabel { *this, "headerTextLabel" };
    Outlet<PushButton> okButton { *this, "okButton" };
    QString textMessage; ///< kept for the form's sake; nothing reads or writes it

    void viewWillAppear() override;

    void updateLabel();
    void applyNoticeStyle();
    void okAction();

private:
    void styleTitleBar();
    void buttonClicked() override { okAction(); }

    NoticeServices services_;
};
