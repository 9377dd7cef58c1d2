#pragma once

#include <QTextLayout>
#include <QWidget>

/// What a countdown says where it begins: a property of its field, which is hidden until the first tick.
inline constexpr auto countdownStartProperty = "countdownStart";

/// A text that the user reads. The text is always plain: no markup in it is ever interpreted. Words too long
/// for a line are broken. What is longer than can be seen, in lines or in letters, ends in an ellipsis. All
/// but captions and countdowns can be selected and copied, with the mouse and with the keyboard.
class TextField : public QWidget {
    Q_OBJECT
    Q_PROPERTY(QString text READ stringValue WRITE setText)
    Q_PROPERTY(Style textStyle READ textStyle WRITE setTextStyle)
    Q_PROPERTY(bool cutInMiddle READ isCutInMiddle WRITE setCutInMiddle)

public:
    /// What the text is in the notice; size, weight, colour and the limit of lines follow from it.
    enum class Style { Heading, Body, Caption, Value, Countdown };
    Q_ENUM(Style)

    explicit TextField(QWidget *parent = nullptr);

    void setStringValue(const QString &text);
    QString stringValue() const { return text_; }

    /// The same under the name that a form uses.
    void setText(const QString &text) { setStringValue(text); }

    /// Whether a text that does not fit, such as an address, loses its middle and not its end.
    void setCutInMiddle(bool cutInMiddle) { cutInMiddle_ = cutInMiddle; }
    bool isCutInMiddle() const { return cutInMiddle_; }

    /// Reports to a screen reader that the text is another one, where the field is seen. A countdown line is
    /// reported by this alone, every other field at each change.
    void announce();

    Style textStyle() const { return style_; }
    void setTextStyle(Style style);
    QColor textColor() const;

    /// Whether the whole text is shown in a tool tip, for a field that cuts it.
    void setAllowsExpansionToolTips(bool allows) { allowsExpansionToolTips_ = allows; }
    bool allowsExpansionToolTips() const { return allowsExpansionToolTips_; }
    void resetCursorRects();

    /// The tool tip's markup.
    QString expansionToolTip() const;

    /// The height of the whole text in lines of this width. Of a text that is cut it is only known that it is
    /// higher than what is shown: the result is that by one line.
    double measuredHeight(double width) const;

    /// What is selected, as it is copied: of a text that is cut always the whole.
    QString selectedText() const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;

protected:
    void paintEvent(QPaintEvent *event) override;
    bool event(QEvent *event) override;
    void changeEvent(QEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;

private:
    struct NarrowLine {
        int index;
        double width;
    };

    bool isSelectable() const;
    void textChanged();
    double lineHeight() const;
    double baseline() const;
    QString shortenedText() const;
    QString readable(const QString &text) const;
    QString shownText() const;
    void shape(const QString &text) const;
    int breakLines(double width, int limit, NarrowLine narrow = { -1, 0 }) const;
    QString cutText(double width) const;
    bool breaksAtBlanks() const;
    void balanceLines(double width, int lines) const;
    bool endsInShortWord(double width) const;
    void lengthenLastLine(double width, int lines) const;
    void layOutFor(double width) const;
    double top() const;
    int positionAt(const QPointF &point) const;
    void select(int anchor, int cursor);

    QString text_;
    Style style_ = Style::Body;
    bool cutInMiddle_ = false;
    bool allowsExpansionToolTips_ = false;
    int anchor_ = 0; ///< where the selection begins, in the text as it is shown
    int cursor_ = 0; ///< where it ends

    // The lines of the width asked for last.
    mutable QTextLayout layout_;
    mutable bool isShaped_ = false; ///< the whole text
    mutable double laidOutFor_ = -1;
    mutable bool isCut_ = false;
};
