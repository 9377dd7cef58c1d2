#include "Tools/Gallery/NoticePainter.h"

#include "Controllers/AppDelegate.h"
#include "Controllers/MainStoryboard.h"
#include "Platform/Desktop.h"
#include "Platform/Qt/FileBundle.h"
#include "Platform/Qt/QtNoticeWindow.h"
#include "Platform/TimerQueue.h"
#include "ServiceTier/portalGatewayServiceTier.h"
#include "Support/AnyLanguageBundle.h"

#include <QApplication>
#include <QFileInfo>
#include <QPixmap>

namespace {

/// A run loop whose time stands still until it is told to go on.
class SteppedRunLoop final : public RunLoop {
public:
    std::shared_ptr<Timer> scheduledTimer(Interval interval, Repeats repeats, TimerBlock block) override {
        return timers_.schedule(now_, interval, repeats, std::move(block));
    }

    void async(Block block) override { timers_.enqueue(std::move(block)); }

    void settle() {
        while (timers_.drain()) { }
    }

    void advance(Interval time) {
        now_ += time;
        timers_.fireDue(now_);
        settle();
    }

private:
    TimerQueue timers_;
    TimerQueue::Clock::time_point now_;
};

/// Nobody else is there: nothing is heard, and what is posted reaches no one.
class SilentNotificationCenter final : public DistributedNotificationCenter {
public:
    void addObserver(const void *, Handler, const QString &) override { }
    void removeObserver(const void *, const QString &) override { }
    void postNotificationName(const QString &) override { }
};

/// One window; a notice that wants to end the process ends nothing.
class GalleryApplication final : public Application {
public:
    std::vector<NoticeWindow *> windows() const override { return { &window_ }; }
    void endIsSettled() override { }
    void endBy(std::chrono::milliseconds) override { }
    void terminate(const Responder *) override { }

private:
    const std::unique_ptr<Desktop> desktop_ = makeDesktop();

public:
    mutable QtNoticeWindow window_ { *desktop_ };
};

void settle(SteppedRunLoop &runLoop) {
    runLoop.settle();
    // The window takes on what was set in a later turn, and its form may then ask for another one.
    constexpr int turns = 4;
    for (int turn = 0; turn < turns; ++turn)
        QCoreApplication::processEvents();
}

} // namespace

NoticePainter::NoticePainter(const QString &contents)
    : contents_(contents) {
    if (!folder_.isValid())
        qFatal("no folder for temporary files: %s", qUtf8Printable(folder_.errorString()));
}

QString NoticePainter::contentsOf(const Brand &brand) const {
    if (brand.isOfBundle)
        return contents_;
    auto branded = folder_.filePath(brand.name);
    if (!QFileInfo::exists(branded))
        makeBrandedContents(contents_, brand, branded);
    return branded;
}

QImage NoticePainter::paint(const Picture &picture) {
    auto desktopFont = QApplication::font();
    desktopFont.setPointSizeF(picture.textPoints);
    QApplication::setFont(desktopFont);
    const FileBundle bundle(contentsOf(picture.brand), [] { return QStringList { QStringLiteral("en") }; });
    AnyLanguageBundle mainBundle(bundle);
    SteppedRunLoop runLoop;
    SilentNotificationCenter notificationCenter;
    GalleryApplication application;
    const NoticeServices services {
        .application = application,
        .runLoop = runLoop,
        .mainBundle = mainBundle,
        .notificationCenter = notificationCenter,
        .makeGatewayClient = [] { return std::unique_ptr<portalGatewayServiceTier>(); },
        .printLine = [](const QString &) {},
    };
    const auto mainStoryboard = makeMainStoryboard(services);
    AppDelegate delegate(application, runLoop, mainBundle, mainStoryboard, notificationCenter);

    delegate.setRootVCForSocketMessageType({ .name = {}, .object = {}, .userInfo = picture.message });
    settle(runLoop);
    runLoop.advance(std::chrono::seconds(1));
    settle(runLoop);
    return application.window_.grab().toImage();
}
