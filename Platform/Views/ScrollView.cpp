#include "Platform/Views/ScrollView.h"

#include <QEvent>
#include <QLayout>
#include <QLinearGradient>
#include <QPainter>
#include <QScrollBar>
#include <QScroller>

#include <utility>

namespace {

constexpr int gapToBar = 8;

/// Over the edge of a view that goes on behind it: the text fades into the notice's white.
class FadingEdge final : public QWidget {
public:
    FadingEdge(QWidget *viewport, bool isUpper)
        : QWidget(viewport)
        , isUpper_(isUpper) {
        setAttribute(Qt::WA_TransparentForMouseEvents);
    }

    void update(const QScrollBar &bar) {
        constexpr int fadeHeight = 18;
        const auto *viewport = parentWidget();
        setGeometry(0, isUpper_ ? 0 : viewport->height() - fadeHeight, viewport->width(), fadeHeight);
        setVisible(isUpper_ ? bar.value() > bar.minimum() : bar.value() < bar.maximum());
        raise();
    }

protected:
    void paintEvent(QPaintEvent *) override {
        QLinearGradient fade(0, isUpper_ ? height() : 0, 0, isUpper_ ? 0 : height());
        fade.setColorAt(0, QColor(255, 255, 255, 0));
        fade.setColorAt(1, Qt::white);
        QPainter(this).fillRect(rect(), fade);
    }

private:
    bool isUpper_;
};

} // namespace

ScrollView::ScrollView(QWidget *parent)
    : QScrollArea(parent) {
    setFrameShape(QFrame::NoFrame);
    setWidgetResizable(true);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setFocusPolicy(Qt::NoFocus);
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Preferred);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
    viewport()->setAutoFillBackground(false);
}

ScrollView::~ScrollView() {
    if (followsFinger_)
        QScroller::ungrabGesture(viewport());
}

// A finger is followed, and an edge says that there is more, only where there is something to scroll. That is
// known for good when it is painted; the toolkit keeps a record of each view that was ever followed.
void ScrollView::paintEvent(QPaintEvent *event) {
    if (verticalScrollBarPolicy() == Qt::ScrollBarAlwaysOn && !std::exchange(followsFinger_, true)) {
        QScroller::grabGesture(viewport(), QScroller::TouchGesture);
        for (const bool isUpper : { true, false }) {
            auto *edge = new FadingEdge(viewport(), isUpper);
            const auto *bar = verticalScrollBar();
            const auto update = [edge, bar] { edge->update(*bar); };
            connect(bar, &QScrollBar::valueChanged, edge, update);
            connect(bar, &QScrollBar::rangeChanged, edge, update);
            update();
        }
    }
    QScrollArea::paintEvent(event);
}

int ScrollView::heightForWidth(int width) const {
    if (!widget() || !widget()->layout())
        return 0;
    auto *layout = widget()->layout();
    return layout->hasHeightForWidth() ? layout->totalHeightForWidth(width)
                                       : layout->totalSizeHint().height();
}

QSize ScrollView::sizeHint() const {
    const int wide = widget() ? widget()->sizeHint().width() : 0;
    return { wide, heightForWidth(std::max(wide, 1)) };
}

// The scroll area's own way asks for the content's narrowest height; a text that wraps has another one. And
// whether the bar is there is settled here: left to itself, a bar that makes the text a line longer keeps
// itself needed.
void ScrollView::fitContent() {
    if (!widget())
        return;
    const auto inside = contentsRect();
    // At a scale between two whole ones the window may be a pixel smaller than it should be.
    constexpr int roundedAway = 1;
    const bool fits = heightForWidth(inside.width()) <= inside.height() + roundedAway;
    const int textWidth
        = fits ? inside.width() : inside.width() - verticalScrollBar()->sizeHint().width() - gapToBar;
    widget()->setAutoFillBackground(false);
    widget()->setMinimumHeight(heightForWidth(textWidth));
    const int gap = fits ? 0 : gapToBar;
    setViewportMargins(isRightToLeft() ? gap : 0, 0, isRightToLeft() ? 0 : gap, 0);
    setVerticalScrollBarPolicy(fits ? Qt::ScrollBarAlwaysOff : Qt::ScrollBarAlwaysOn);
}

void ScrollView::resizeEvent(QResizeEvent *event) {
    fitContent();
    QScrollArea::resizeEvent(event);
}

bool ScrollView::eventFilter(QObject *watched, QEvent *event) {
    if (watched == widget() && event->type() == QEvent::LayoutRequest) {
        fitContent();
        updateGeometry();
    }
    return QScrollArea::eventFilter(watched, event);
}
