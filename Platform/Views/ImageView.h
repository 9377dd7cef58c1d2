#pragma once

#include "Platform/Image.h"

#include <QImage>
#include <QWidget>

#include <optional>
#include <utility>

/// Shows an image scaled to fit, at the leading edge. Without one it is empty.
class ImageView : public QWidget {
    Q_OBJECT

public:
    explicit ImageView(QWidget *parent = nullptr);

    void setImage(std::optional<Image> image);
    const std::optional<Image> &image() const { return image_; }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    std::optional<Image> image_;
    QImage drawn_;
    std::pair<QSize, double> drawnFor_; ///< size and scale
};
