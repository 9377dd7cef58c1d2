#include "Tests/Fakes/FakeNoticeWindow.h"

#include "Platform/NoticeController.h"

#include <QLayout>

namespace {

constexpr int contentWidth = 460;

} // namespace

FakeNoticeWindow::FakeNoticeWindow(Journal &journal, QString name)
    : journal_(journal)
    , name_(std::move(name)) {
    host_.setFixedWidth(contentWidth);
    host_.show();
}

FakeNoticeWindow::~FakeNoticeWindow() {
    // The controller owns its view and may outlive the window.
    if (contentViewController() && contentViewController()->view())
        contentViewController()->view()->setParent(nullptr);
}

void FakeNoticeWindow::add(const QString &call) {
    journal_.add(name_ + u' ' + call);
}

void FakeNoticeWindow::setAlphaValue(double alpha) {
    alpha_ = alpha;
    add(QStringLiteral("alpha %1").arg(alpha, 0, 'f', 1));
}

void FakeNoticeWindow::setLevel(int level) {
    add(QStringLiteral("level %1").arg(level));
}

void FakeNoticeWindow::setTitlebarAppearsTransparent(bool transparent) {
    add(transparent ? QStringLiteral("title bar transparent") : QStringLiteral("title bar opaque"));
}

void FakeNoticeWindow::setBackgroundColor(const QColor &color) {
    add(QStringLiteral("background %1").arg(color.name(QColor::HexArgb)));
}

void FakeNoticeWindow::makeKeyAndOrderFront() {
    add(QStringLiteral("key and front"));
}

void FakeNoticeWindow::invalidateCursorRectsForView(QWidget *view) {
    const bool isContent = contentViewController() && view == contentViewController()->view();
    add(isContent ? QStringLiteral("cursor rectangles of the content")
                  : QStringLiteral("cursor rectangles of another view"));
}

std::string FakeNoticeWindow::content() const {
    return contentViewController() ? contentViewController()->className() : "";
}

void FakeNoticeWindow::replaceContentView(QWidget *oldView, QWidget *newView) {
    add(QStringLiteral("content %1").arg(QString::fromStdString(content())));
    if (oldView) {
        oldView->hide();
        oldView->setParent(nullptr);
    }
    if (!newView)
        return;
    newView->setParent(&host_);
    newView->setGeometry(0, 0, contentWidth, newView->heightForWidth(contentWidth));
    if (newView->layout())
        newView->layout()->activate();
    newView->show();
}
