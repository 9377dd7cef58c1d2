#pragma once

#include <QColor>
#include <QWidget>

/// The tile at a notice's beginning, with a sign of the notice's kind.
class NoticeSign : public QWidget {
    Q_OBJECT
    Q_PROPERTY(Kind kind READ kind WRITE setKind)

public:
    enum class Kind { Blocked, SignIn, Disconnected, OtherSession, Maintenance };
    Q_ENUM(Kind)

    explicit NoticeSign(QWidget *parent = nullptr);

    Kind kind() const { return kind_; }
    void setKind(Kind kind);

    /// The colour of a kind's sign.
    static QColor colorOf(Kind kind);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    Kind kind_ = Kind::Blocked;
};
