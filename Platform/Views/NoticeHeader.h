#pragma once

#include "Platform/Views/LayerView.h"

/// The header of a notice: the brand's ground with the logo on it. A ground that is nearly white is parted
/// from the notice's body by a hairline. It brings its image view, named `headerLogoImageView`; a form may
/// give it an image by the property `imageName`.
class NoticeHeader : public LayerView {
    Q_OBJECT

public:
    explicit NoticeHeader(QWidget *parent = nullptr);

protected:
    void paintEvent(QPaintEvent *event) override;
};
