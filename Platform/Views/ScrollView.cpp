#include "Platform/Views/ScrollView.h"

#include <QEvent>
#include <QLayout>
#include <QScrollBar>
#include <QScroller>

#include <utility>

namespace {

constexpr int barWidth = 8;
constexpr int gapToBar = 8;

// Thin, and dark enough to be seen on the notice's white.
const auto barStyle = QStringLiteral(
    "QScrollBar:vertical { width: 8px; border: none; background: #f0f1f5; border-radius: 4px; }"
    "QScrollBar::handle:vertical { min-height: 28px; background: #8a91a5; border-radius: 4px; }"
    "QScrollBar::add-line, QScrollBar::sub-line { height: 0; }"
    "QScrollBar::add-page, QScrollBar::sub-page { background: none; }");

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

// A finger is followed only where there is something to scroll, which is known for good when it is painted:
// the toolkit keeps a record of each view that was ever followed.
void ScrollView::paintEvent(QPaintEvent *event) {
    if (verticalScrollBarPolicy() == Qt::ScrollBarAlwaysOn && !std::exchange(followsFinger_, true))
        QScroller::grabGesture(viewport(), QScroller::TouchGesture);
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
    const bool fits = heightForWidth(inside.width()) <= inside.height();
    const int textWidth = fits ? inside.width() : inside.width() - barWidth - gapToBar;
    widget()->setAutoFillBackground(false);
    widget()->setMinimumHeight(heightForWidth(textWidth));
    const int gap = fits ? 0 : gapToBar;
    setViewportMargins(isRightToLeft() ? gap : 0, 0, isRightToLeft() ? 0 : gap, 0);
    // Only where there is a bar: a style sheet costs time, and most notices have none.
    if (!fits && verticalScrollBar()->styleSheet().isEmpty())
        verticalScrollBar()->setStyleSheet(barStyle);
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

bool ScrollView::scrollBy(int key) {
    auto *bar = verticalScrollBar();
    switch (key) {
    case Qt::Key_Up:
        bar->triggerAction(QAbstractSlider::SliderSingleStepSub);
        return true;
    case Qt::Key_Down:
        bar->triggerAction(QAbstractSlider::SliderSingleStepAdd);
        return true;
    case Qt::Key_PageUp:
        bar->triggerAction(QAbstractSlider::SliderPageStepSub);
        return true;
    case Qt::Key_PageDown:
        bar->triggerAction(QAbstractSlider::SliderPageStepAdd);
        return true;
    case Qt::Key_Home:
        bar->triggerAction(QAbstractSlider::SliderToMinimum);
        return true;
    case Qt::Key_End:
        bar->triggerAction(QAbstractSlider::SliderToMaximum);
        return true;
    default:
        return false;
    }
}
