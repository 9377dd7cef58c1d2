#pragma once

#include "Platform/Application.h"
#include "Tests/Fakes/Journal.h"
#include "Tests/Fakes/ManualRunLoop.h"

/// An application whose end is only recorded, so that a test sees what would come after it.
class FakeApplication final : public Application {
public:
    struct Termination {
        const Responder *sender;
        RunLoop::Interval at; ///< on the run loop's clock
    };

    /// @param runLoop  outlives the application, as does the journal
    FakeApplication(const ManualRunLoop &runLoop, Journal &journal);

    /// Told once, at the first end. May be null.
    void setDelegate(ApplicationDelegate *delegate) { delegate_ = delegate; }

    void setWindows(std::vector<NoticeWindow *> windows) { windows_ = std::move(windows); }
    std::vector<NoticeWindow *> windows() const override { return windows_; }

    void endIsSettled() override;
    /// When the end was settled, each time, on the run loop's clock.
    const std::vector<RunLoop::Interval> &settledEnds() const { return settledEnds_; }

    void endBy(std::chrono::milliseconds interval) override { endsBy_ = interval; }
    /// What was asked of `endBy()`; nothing before.
    std::optional<std::chrono::milliseconds> endsBy() const { return endsBy_; }

    void terminate(const Responder *sender) override;
    const std::vector<Termination> &terminations() const { return terminations_; }

private:
    const ManualRunLoop &runLoop_;
    Journal &journal_;
    std::optional<std::chrono::milliseconds> endsBy_;
    ApplicationDelegate *delegate_ = nullptr;
    std::vector<NoticeWindow *> windows_;
    std::vector<RunLoop::Interval> settledEnds_;
    std::vector<Termination> terminations_;
};
