#include "Platform/Views/LayoutConstraint.h"

#include "Platform/Views/RowView.h"

#include <QLayout>
#include <QWidget>

#include <cmath>

namespace {

// A widget folded away has no height, and neither has anything in it; nothing is hidden.
void foldAway(QWidget *widget) {
    if (auto *layout = widget->layout())
        layout->setContentsMargins(0, 0, 0, 0);
    const auto children = widget->findChildren<QWidget *>(QString(), Qt::FindDirectChildrenOnly);
    for (auto *child : children)
        child->setFixedHeight(0);
}

} // namespace

void LayoutConstraint::createFromForm(QWidget *view) {
    const auto widgets = view->findChildren<QWidget *>();
    for (auto *widget : widgets) {
        const auto height = widget->property("heightConstraint").toString();
        if (!height.isEmpty())
            new LayoutConstraint(widget, height, Kind::HeightLimit);
        const auto gap = widget->property("gapConstraint").toString();
        if (!gap.isEmpty())
            new LayoutConstraint(widget, gap, Kind::Gap);
    }
}

LayoutConstraint::LayoutConstraint(QWidget *driven, const QString &name, Kind kind)
    : QObject(driven)
    , driven_(driven)
    , kind_(kind)
    , constant_(driven->maximumHeight()) {
    setObjectName(name);
}

void LayoutConstraint::setConstant(double constant) {
    constant_ = constant;
    const int height = std::max(0, static_cast<int>(std::lround(constant)));
    if (kind_ == Kind::Gap) {
        driven_->setFixedHeight(height);
        return;
    }
    driven_->setMaximumHeight(height);
    if (height > 0)
        return;
    foldAway(driven_);
    if (auto *group = qobject_cast<RowGroup *>(driven_->parentWidget()))
        group->rowFoldedAway();
}
