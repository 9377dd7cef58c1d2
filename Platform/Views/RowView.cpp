#include "Platform/Views/RowView.h"

#include <QLayout>
#include <QPainter>

#include <algorithm>

namespace {

const QColor hairlineColor(228, 231, 239);

} // namespace

void RowView::paintEvent(QPaintEvent *) {
    QPainter(this).fillRect(0, 0, width(), 1, hairlineColor);
}

bool RowGroup::hasRows() const {
    const auto rows = findChildren<RowView *>(QString(), Qt::FindDirectChildrenOnly);
    return std::any_of(rows.begin(), rows.end(), [](const auto *row) { return row->maximumHeight() > 0; });
}

void RowGroup::rowFoldedAway() {
    if (layout() && !hasRows())
        layout()->setContentsMargins(0, 0, 0, 0);
}

void RowGroup::paintEvent(QPaintEvent *) {
    if (hasRows())
        QPainter(this).fillRect(0, height() - 1, width(), 1, hairlineColor);
}
