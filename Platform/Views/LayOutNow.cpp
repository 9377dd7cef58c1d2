#include "Platform/Views/LayOutNow.h"

#include "Platform/Views/ScrollView.h"

#include <QCoreApplication>
#include <QLayout>
#include <QResizeEvent>
#include <QWidget>

namespace {

void layOutDownwards(QWidget &view) {
    // A widget that is not on the screen is told of its size only when it appears; its layout waits for that.
    if (view.testAttribute(Qt::WA_PendingResizeEvent)) {
        QResizeEvent resized(view.size(), QSize());
        QCoreApplication::sendEvent(&view, &resized);
        view.setAttribute(Qt::WA_PendingResizeEvent, false);
    }
    if (auto *scrollView = qobject_cast<ScrollView *>(&view))
        scrollView->fitContent();
    if (auto *layout = view.layout())
        layout->activate();
    const auto children = view.findChildren<QWidget *>(QString(), Qt::FindDirectChildrenOnly);
    for (auto *child : children)
        layOutDownwards(*child);
}

} // namespace

void layOutNow(QWidget &view) {
    // What the layouts remember of their parts may be of the texts before.
    const auto layouts = view.findChildren<QLayout *>();
    for (auto *layout : layouts)
        layout->invalidate();
    const auto parts = view.findChildren<QWidget *>();
    for (auto *part : parts)
        part->updateGeometry();
    layOutDownwards(view);
}
