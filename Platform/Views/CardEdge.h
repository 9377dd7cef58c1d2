#pragma once

#include <QMargins>
#include <QWidget>

/// The edge of a notice's card, drawn over everything in the window: a line of one pixel, and where the
/// desktop composes windows round corners and a soft shadow around the card. The pointer goes through it.
class CardEdge : public QWidget {
    Q_OBJECT

public:
    /// How far the shadow reaches beyond the card.
    static const QMargins shadowMargins;

    explicit CardEdge(QWidget *parent);

    /// @param hasShadow  whether the shadow's margins are around the card; the line lies in them, else in the
    ///                   card
    void setHasShadow(bool hasShadow);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    bool hasShadow_ = false;
};
