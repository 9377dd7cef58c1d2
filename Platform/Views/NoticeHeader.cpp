#include "Platform/Views/NoticeHeader.h"

#include "Platform/Views/Contrast.h"
#include "Platform/Views/ImageView.h"
#include "Platform/Views/NoticeStyle.h"

#include <QHBoxLayout>
#include <QPainter>

namespace {

constexpr int headerHeight = 52;
constexpr int logoHeight = 28;
constexpr int sideMargin = 24;
constexpr double nearlyWhite = 1.3; // contrast to white

} // namespace

NoticeHeader::NoticeHeader(QWidget *parent)
    : LayerView(parent) {
    setFixedHeight(headerHeight);
    auto *logo = new ImageView(this);
    logo->setObjectName(QStringLiteral("headerLogoImageView"));
    logo->setFixedHeight(logoHeight);
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(sideMargin, 0, sideMargin, 0);
    layout->addWidget(logo);
}

void NoticeHeader::paintEvent(QPaintEvent *event) {
    LayerView::paintEvent(event);
    if (Contrast::ratio(layerBackgroundColor(), Qt::white) < nearlyWhite)
        QPainter(this).fillRect(
            QRectF(0, height() - 1, width(), NoticeStyle::hairline(*this)), NoticeStyle::hairlineColor);
}
