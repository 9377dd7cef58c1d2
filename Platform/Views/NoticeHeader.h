#pragma once

#include "Platform/Views/LayerView.h"

class ImageView;

/// The header of a notice: the brand's ground with the logo on it. A ground that is nearly white is parted
/// from the notice's body by a hairline. It brings its image view, named `headerLogoImageView`.
class NoticeHeader : public LayerView {
    Q_OBJECT
    Q_PROPERTY(QString imageName READ imageName WRITE setImageName)

public:
    explicit NoticeHeader(QWidget *parent = nullptr);

    /// The image that a form gives to the image view.
    QString imageName() const;
    void setImageName(const QString &name);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    ImageView *logo_;
};
