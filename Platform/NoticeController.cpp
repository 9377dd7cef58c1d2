#include "Platform/NoticeController.h"

#include "Platform/FatalStop.h"
#include "Platform/NoticeWindow.h"
#include "Platform/Views/ImageView.h"
#include "Platform/Views/PushButton.h"
#include "Platform/Views/TextField.h"

#include <utility>

OutletBase::OutletBase(NoticeController &owner, const char *name)
    : owner_(owner)
    , name_(name) {
    owner.outlets_.push_back(this);
}

void OutletBase::stopUnconnected() const {
    fatalStop(QStringLiteral("%1: the outlet \"%2\" is not connected")
                  .arg(QLatin1String(owner_.className()), QLatin1String(name_)));
}

NoticeController::NoticeController(const char *className)
    : className_(className) { }

NoticeController::~NoticeController() {
    // Not at once: the controller may go while a signal of one of its own views is being handled.
    if (view_)
        view_->deleteLater();
}

void NoticeController::loadView(std::unique_ptr<LayerView> view) {
    view_ = view.release();
    for (auto *outlet : outlets_)
        outlet->connectTo(view_);
    if (auto *button = view_->findChild<PushButton *>())
        QObject::connect(button, &PushButton::clicked, button, [this] { buttonClicked(); });
    viewDidLoad();
}

void NoticeController::setWindowAlpha(double alpha) {
    if (window_)
        window_->setAlphaValue(alpha);
}

void NoticeController::viewDidDisappear() {
    const auto imageViews = view_->findChildren<ImageView *>();
    for (auto *imageView : imageViews)
        imageView->setImage(std::nullopt);
    const auto labels = view_->findChildren<TextField *>();
    for (auto *label : labels)
        label->setStringValue({});
}

void NoticeWindow::setContentViewController(std::shared_ptr<NoticeController> controller) {
    // Held to the end of this function: the view must leave the window before its controller goes.
    const auto previous = std::exchange(contentViewController_, std::move(controller));
    if (previous)
        previous->window_ = nullptr;
    replaceContentView(previous ? previous->view() : nullptr,
        contentViewController_ ? contentViewController_->view() : nullptr);
    if (previous && previous != contentViewController_)
        previous->viewDidDisappear();
    if (!contentViewController_)
        return;
    contentViewController_->window_ = this;
    contentViewController_->viewWillAppear();
}
