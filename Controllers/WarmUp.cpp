#include "Controllers/WarmUp.h"

#include "Platform/Image.h"
#include "Platform/NoticeController.h"
#include "Platform/RunLoop.h"
#include "Platform/Storyboard.h"
#include "Platform/Views/TextField.h"
#include "Support/CustomAPPManager.h"

#include <QImage>

#include <utility>

namespace {

/// Takes a step in a later turn of the loop, unless a message came meanwhile, which has loaded all this.
void whenIdle(RunLoop &runLoop, RunLoop::Block step) {
    runLoop.scheduledTimer(std::chrono::milliseconds::zero(), Repeats::No, [step = std::move(step)](Timer &) {
        if (CustomAPPManager::payload.isEmpty())
            step();
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

void decodeLogo(const Bundle &mainBundle) {
    constexpr QSize box(100, 28);
    if (const auto logo = Image::named(mainBundle, CustomAPPManager::AppLogo))
        logo->scaledToFit(box, 1);
}

} // namespace

void warmUp(RunLoop &runLoop, const Bundle &mainBundle, const Storyboard &mainStoryboard) {
    whenIdle(runLoop, [&runLoop, &mainBundle, &mainStoryboard] {
        drawOneNotice(mainStoryboard);
        whenIdle(runLoop, [&mainBundle] { decodeLogo(mainBundle); });
    });
}
