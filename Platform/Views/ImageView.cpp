#include "Platform/Views/ImageView.h"

#include <QPainter>

ImageView::ImageView(QWidget *parent)
    : QWidget(parent) { }

void ImageView::setImage(std::optional<Image> image) {
    image_ = std::move(image);
    drawnFor_ = {};
    update();
}

void ImageView::paintEvent(QPaintEvent *) {
    if (!image_)
        return;
    const auto wanted = std::pair(size(), devicePixelRatioF());
    if (std::exchange(drawnFor_, wanted) != wanted)
        drawn_ = image_->scaledToFit(wanted.first, wanted.second);
    const auto drawnSize = drawn_.deviceIndependentSize();
    const double left = layoutDirection() == Qt::RightToLeft ? width() - drawnSize.width() : 0;
    QPainter(this).drawImage(QPointF(left, (height() - drawnSize.height()) / 2), drawn_);
}
