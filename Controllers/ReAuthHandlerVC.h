#pragma once

#include "Controllers/Notice.h"

/// The re-authentication notice: a countdown, at whose end, or on OK, the main client is told that the user
/// is to authenticate again. Main thread only.
class ReAuthHandlerVC final : public HandlerVC {
public:
    explicit ReAuthHandlerVC(const NoticeServices &services);

    void setupUI() override;
    /// @param mins  where the countdown starts: seconds, whatever the name says
    void createTimer(std::int64_t mins);
    void okayAction() override;

private:
    void requestReAuthenticationAndQuit(const char *function);
};
