// The centres of a macOS build, and the one of macOS over another Foundation.

#include "Platform/macOS/MacNotificationCenter.h"
#include "Tests/Contracts/FoundationLoop.h"
#include "Tests/Contracts/InMemoryCenters.h"

namespace {

class MacCenters final : public Centers {
public:
    DistributedNotificationCenter &observing() override { return observing_; }
    void post(const Notification &notification) override { postInFoundation(notification); }
    bool waitUntil(const std::function<bool()> &condition) override {
        return turnBothLoopsUntil(loop_, condition);
    }
    void waitUntilObserving() override { } // the daemon has answered when an observer is added

private:
    ManualRunLoop loop_;
    MacNotificationCenter observing_ { loop_ };
};

#ifdef GNUSTEP
// The one difference that is not ours, and that macOS does not have: GNUstep's daemon hands a boolean on as
// the integer 1 or 0. With it no flag of a message is ever true.
constexpr bool booleansAreKept = false;
#else
constexpr bool booleansAreKept = true;
#endif

// Foundation does not keep how wide an integer was.
QVariant arriving(const QVariant &posted) {
    switch (posted.metaType().id()) {
    case QMetaType::Bool:
        return booleansAreKept ? posted : QVariant::fromValue<qlonglong>(posted.toBool() ? 1 : 0);
    case QMetaType::Int:
        return QVariant::fromValue<qlonglong>(posted.toLongLong());
    default:
        return posted;
    }
}

} // namespace

const std::vector<Kind> &kinds() {
    static const std::vector<Kind> all {
        { "Foundation", []() -> std::unique_ptr<Centers> { return std::make_unique<MacCenters>(); },
            arriving },
    };
    return all;
}
