#pragma once

#include "Controllers/Notice.h"
#include "Platform/Views/LayoutConstraint.h"
#include "Support/SocketPayload.h"

/// The CASB activity notice: what was done in which application at which URL, a countdown to an automatic
/// close, and on close a request of the URL that the notice names. Main thread only, but for
/// `updateNotificationWindow()`.
class ViewController final : public Notice {
public:
    explicit ViewController(const NoticeServices &services);

    Outlet<TextField> autoCloseLabel { *this, "autoCloseLabel" };
    Outlet<PushButton> okButton { *this, "okButton" };
    Outlet<TextField> applicationTitleLabel { *this, "applicationTitleLabel" };
    Outlet<TextField> activityTitleLabel { *this, "activityTitleLabel" };
    Outlet<TextField> urlTitleLabel { *this, "urlTitleLabel" };
    Outlet<TextField> SocketHeaderTitleLabel { *this, "SocketHeaderTitleLabel" };
    Outlet<TextField> applicationText { *this, "applicationText" };
    Outlet<TextField> activityText { *this, "activityText" };
    Outlet<TextField> urlText { *this, "urlText" };
    Outlet<TextField> applicationInformationLabel { *this, "applicationInformationLabel" };
    Outlet<LayoutConstraint> activityHeightConstant { *this, "activityHeightConstant" };
    Outlet<LayoutConstraint> urlHeightConstant { *this, "urlHeightConstant" };
    Outlet<LayoutConstraint> applicationHeightConstant { *this, "applicationHeightConstant" };
    /// Declared for the form; nothing changes it.
    Outlet<LayoutConstraint> informationHeightConstant { *this, "informationHeightConstant" };
    Outlet<LayoutConstraint> OkButtonTopConstraints { *this, "OkButtonTopConstraints" };

    /// Requested on OK: the activity URL of the countdown that was started last in this process.
    inline static QString closeActivityUrl;
    /// The time-out of the notice shown last; nothing reads it.
    inline static std::int64_t autoCloseSeconds = 30;

    void viewWillAppear() override;

    void parseWebSocketResponse();

    /// Parses the text on the caller's thread and posts the refresh of the window to the main queue. A text
    /// that is no XML leaves the window as it is.
    void updateNotificationWindow(const QString &xmlStr);

    void setupView(const SocketPayload &data);
    void changeToolbarTitle();
    void okAction();

    /// Requests the URL and returns at once; what comes back is only logged.
    void postUrlOnCloseActivity(const QString &url);

private:
    void fillLabels(const SocketPayload &data);
    void updateExpansionToolTips();
    void collapseEmptyRows();
    void startCountdown(const SocketPayload &data);
    void closeWindowAndQuit();
    QString countdownText(std::int64_t secondsLeft) const;
    void buttonClicked() override { okAction(); }
};
