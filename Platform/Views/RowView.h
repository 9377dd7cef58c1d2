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

/// The rows of a notice, ended by a hairline. Where every row is folded away it has no height either: its
/// margins in the form are those of a group with rows.
class RowGroup : public QWidget {
    Q_OBJECT

public:
    using QWidget::QWidget;

    /// Called when a row was folded away.
    void rowFoldedAway();

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    bool hasRows() const;
};
