#pragma once

#include "Controllers/Notice.h"

/// The maintenance notice: a text that the message brings, and OK, which ends the application. Main thread
/// only.
class MaintenanceModeVC final : public Notice {
public:
    explicit MaintenanceModeVC(const NoticeServices &services);

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
};
