#pragma once

#include "Controllers/NoticeServices.h"
#include "Platform/NoticeController.h"
#include "Platform/Views/ImageView.h"
#include "Platform/Views/LayerView.h"
#include "Platform/Views/PushButton.h"
#include "Platform/Views/TextField.h"

/// The maintenance notice: a text that the message brings, and OK, which ends the application. Main thread
/// only.
class MaintenanceModeVC final : public NoticeController {
public:
    explicit MaintenanceModeVC(const NoticeServices &services);

    Outlet<ImageView> headerLogoImageView { *this, "headerLogoImageView" };
    Outlet<LayerView> headerView { *this, "headerView" };
    Outlet<TextField> textMessageLabel { *this, "textMessageLabel" };
    Outlet<PushButton> okButton { *this, "okButton" };
    QString textMessage; ///< kept for the form's sake; nothing reads or writes it

    void viewWillAppear() override;

    void configureView();
    void applyVendorWindowBackground();
    void setHeaderLogo();
    void okAction();

private:
    void buttonClicked() override { okAction(); }

    NoticeServices services_;
};
