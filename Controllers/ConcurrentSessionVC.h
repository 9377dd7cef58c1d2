#pragma once

#include "Controllers/Notice.h"

/// The concurrent-session notice: a title and a body from the message's XML, and OK, which ends the
/// application. It uses neither the configured logo nor the configured header colour, and has no vendor rule,
/// deliberately. Main thread only.
class ConcurrentSessionVC final : public Notice {
public:
    explicit ConcurrentSessionVC(const NoticeServices &services);

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
};
