#include "Platform/Views/ImageView.h"

#include <QPainter>

#include <utility>

ImageView::ImageView(QWidget *parent)
    : QWidget(parent) { }

void ImageView::setImage(std::optional<Image> image) {
    image_ = std::move(image);
    drawn_ = {};
    update();
}

void ImageView::paintEvent(QPaintEvent *) {
    if (!image_)
        return;
    const double scale = devicePixelRatioF();
    if (drawn_.isNull() || drawnFor_ != size() || drawn_.devicePixelRatio() != scale) {
        drawn_ = image_->scaledToFit(size(), scale);
        drawnFor_ = size();
    }
    const auto drawnSize = drawn_.deviceIndependentSize();
    const double left = layoutDirection() == Qt::RightToLeft ? width() - drawnSize.width() : 0;
    QPainter(this).drawImage(QPointF(left, (height() - drawnSize.height()) / 2), drawn_);
}
