#pragma once

#include <QWidget>

/// A row of a notice, with a caption and its value under a hairline.
class RowView : public QWidget {
    Q_OBJECT

public:
    using QWidget::QWidget;

protected:
    void paintEvent(QPaintEvent *event) override;
};

/// The rows of a notice, ended by a hairline where any of them has a height.
class RowGroup : public QWidget {
    Q_OBJECT

public:
    using QWidget::QWidget;

protected:
    void paintEvent(QPaintEvent *event) override;
};
