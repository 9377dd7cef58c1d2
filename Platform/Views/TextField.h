#pragma once

#include "Platform/Views/WrappedText.h"

#include <QWidget>

#include <memory>

/// What a countdown says where it begins: a property of its field, which is hidden until the first tick.
inline constexpr auto countdownStartProperty = "countdownStart";

/// A text that the user reads. The text is always plain: no markup in it is ever interpreted. Words too long
/// for a line are broken; a field with a limit of lines ends in an ellipsis past it.
class TextField : public QWidget {
    Q_OBJECT
    Q_PROPERTY(QString text READ text WRITE setText)
    Q_PROPERTY(Qt::Alignment alignment READ alignment WRITE setAlignment)
    Q_PROPERTY(Style textStyle READ textStyle WRITE setTextStyle)
    Q_PROPERTY(int maximumLines READ maximumLines WRITE setMaximumLines)

public:
    /// What the text is in the notice; size, weight and colour follow from it.
    enum class Style { Heading, Body, Caption, Value, Countdown };
    Q_ENUM(Style)

    explicit TextField(QWidget *parent = nullptr);
    ~TextField() override;

    void setStringValue(const QString &text);
    QString stringValue() const { return text_; }

    // The same under the names that a form uses.
    void setText(const QString &text) { setStringValue(text); }
    QString text() const { return text_; }

    /// Only the vertical part counts; the edge follows the window's direction.
    void setAlignment(Qt::Alignment alignment);
    Qt::Alignment alignment() const { return alignment_; }

    /// Has a screen reader told that the text is another one. A countdown line is told by this alone, every
    /// other field at each change.
    void announce();

    Style textStyle() const { return style_; }
    void setTextStyle(Style style);
    QColor textColor() const;

    /// 0 for no limit.
    int maximumLines() const { return maximumLines_; }
    void setMaximumLines(int lines);

    /// Whether the whole text is shown in a tool tip, for a field that cuts it.
    void setAllowsExpansionToolTips(bool allows) { allowsExpansionToolTips_ = allows; }
    bool allowsExpansionToolTips() const { return allowsExpansionToolTips_; }
    void resetCursorRects();

    /// The tool tip's markup.
    QString expansionToolTip() const;

    /// The height of the whole text in lines of this width, without a limit of lines.
    double measuredHeight(double width) const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;

protected:
    void paintEvent(QPaintEvent *event) override;
    bool event(QEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    void applyStyle();
    double lineHeight() const;
    double scaledPixels(double pixels) const;
    WrappedText &wrapped() const;
    void drawEllipsis(QPainter &painter, const QTextLayout &paragraph, const QTextLine &line) const;

    QString text_;
    Qt::Alignment alignment_ = Qt::AlignLeading | Qt::AlignVCenter;
    Style style_ = Style::Body;
    int maximumLines_ = 0;
    bool allowsExpansionToolTips_ = false;
    mutable std::unique_ptr<WrappedText> wrapped_; ///< made when it is asked for
};
