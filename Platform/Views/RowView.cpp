#include "Platform/Views/RowView.h"

#include "Platform/Views/NoticeStyle.h"

#include <QLayout>
#include <QPainter>

#include <algorithm>

void RowView::paintEvent(QPaintEvent *) {
    QPainter(this).fillRect(QRectF(0, 0, width(), NoticeStyle::hairline(*this)), NoticeStyle::hairlineColor);
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
        QPainter(this).fillRect(
            QRectF(0, height() - 1, width(), NoticeStyle::hairline(*this)), NoticeStyle::hairlineColor);
}
