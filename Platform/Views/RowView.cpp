#include "Platform/Views/RowView.h"

#include <QPainter>

#include <algorithm>

namespace {

const QColor hairlineColor(228, 231, 239);

} // namespace

void RowView::paintEvent(QPaintEvent *) {
    QPainter(this).fillRect(0, 0, width(), 1, hairlineColor);
}

void RowGroup::paintEvent(QPaintEvent *) {
    const auto rows = findChildren<RowView *>(QString(), Qt::FindDirectChildrenOnly);
    if (std::any_of(rows.begin(), rows.end(), [](const auto *row) { return row->height() > 0; }))
        QPainter(this).fillRect(0, height() - 1, width(), 1, hairlineColor);
}
