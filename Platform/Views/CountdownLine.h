#pragma once

#include <QWidget>

/// The line under the header that gets shorter with a countdown, from the leading to the trailing side.
class CountdownLine : public QWidget {
    Q_OBJECT

public:
    explicit CountdownLine(QWidget *parent = nullptr);

    /// @param fraction  from 0 to 1
    void setRemaining(double fraction);
    double remaining() const { return remaining_; }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    double remaining_ = 1;
};
