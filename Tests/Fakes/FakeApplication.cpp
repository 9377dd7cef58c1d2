#include "Tests/Fakes/FakeApplication.h"

#include "Platform/NoticeController.h"

#include <utility>

namespace {

std::string nameOf(const Responder *sender) {
    if (const auto *controller = dynamic_cast<const NoticeController *>(sender))
        return controller->className();
    return dynamic_cast<const ApplicationDelegate *>(sender) ? "AppDelegate" : "nobody";
}

} // namespace

FakeApplication::FakeApplication(const ManualRunLoop &runLoop, Journal &journal)
    : runLoop_(runLoop)
    , journal_(journal) { }

void FakeApplication::endIsSettled() {
    settledEnds_.push_back(runLoop_.elapsed());
    if (delegate_)
        delegate_->applicationEndIsSettled();
}

void FakeApplication::terminate(const Responder *sender) {
    terminations_.push_back({ sender, runLoop_.elapsed() });
    journal_.add(QStringLiteral("terminate by %1").arg(QString::fromStdString(nameOf(sender))));
    if (auto *delegate = std::exchange(delegate_, nullptr))
        delegate->applicationWillTerminate();
}
