#include "Controllers/WarmUp.h"

#include "Platform/Image.h"
#include "Platform/NoticeController.h"
#include "Platform/RunLoop.h"
#include "Platform/Storyboard.h"
#include "Platform/Views/TextField.h"
#include "Support/CustomAPPManager.h"
#include "Support/Logger.h"

#include <QImage>

#include <deque>
#include <memory>
#include <utility>

namespace {

constexpr LogSource warmUpLog("Controllers/WarmUp");

using Steps = std::deque<RunLoop::Block>;

void runNext(RunLoop &runLoop, const std::shared_ptr<Steps> &steps) {
    if (steps->empty())
        return;
    runLoop.scheduledTimer(std::chrono::milliseconds::zero(), Repeats::No, [&runLoop, steps](Timer &) {
        // A message has loaded all this already.
        if (!CustomAPPManager::payload.isEmpty())
            return;
        const auto step = std::move(steps->front());
        steps->pop_front();
        step();
        runNext(runLoop, steps);
    });
}

// The notice with the most in it, drawn where nobody sees it.
void drawOneNotice(const Storyboard &storyboard) {
    const auto controller = storyboard.instantiateControllerWithIdentifier(QStringLiteral("ViewController"));
    auto *view = controller->view();
    const auto labels = view->findChildren<TextField *>();
    for (auto *label : labels)
        label->setStringValue(QStringLiteral("Notice 0123456789"));
    QImage image(view->size(), QImage::Format_ARGB32_Premultiplied);
    view->render(&image);
}

} // namespace

void warmUp(RunLoop &runLoop, const Bundle &mainBundle, const Storyboard &mainStoryboard) {
    Steps steps {
        [&mainStoryboard] { drawOneNotice(mainStoryboard); },
        [&mainBundle] {
            const auto unreadable = Image::unreadableFormats();
            for (const auto &format : unreadable)
                warmUpLog.error(
                    "warmUp()", QStringLiteral("Nothing installed reads images of the format ") + format);
            constexpr QSize box(100, 28);
            if (const auto logo = Image::named(mainBundle, CustomAPPManager::AppLogo))
                logo->scaledToFit(box, 1);
        },
    };
    runNext(runLoop, std::make_shared<Steps>(std::move(steps)));
}
