#pragma once

#include "Platform/Views/NoticeSign.h"

/// The line under the header of a notice that counts down: as long as the part of the time that is left, from
/// the leading edge. When it is given another length, only what differs from the last two is painted again.
class CountdownLine : public QWidget {
    Q_OBJECT
    Q_PROPERTY(NoticeSign::Kind kind READ kind WRITE setKind)

public:
    explicit CountdownLine(QWidget *parent = nullptr);

    /// The kind of the notice, which decides the colour.
    NoticeSign::Kind kind() const { return kind_; }
    void setKind(NoticeSign::Kind kind) { kind_ = kind; }

    /// @param fraction  from 0 to 1; anything beyond counts as the nearer one
    void setRemaining(double fraction);
    double remaining() const { return remaining_; }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QRectF part(double from, double to) const;

    NoticeSign::Kind kind_ = NoticeSign::Kind::Blocked;
    double remaining_ = 1;
    double before_ = 1;
};
