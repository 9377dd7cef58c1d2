#include "Platform/Qt/NoticeAccessibility.h"

#include "Platform/Qt/QtNoticeWindow.h"
#include "Platform/Views/RowView.h"
#include "Platform/Views/TextField.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QPointer>

#include <algorithm>
#include <utility>

namespace {

// A countdown that has yet to tick is hidden, and knows what it says where it begins.
QString spokenText(const TextField &field, const QWidget &view) {
    if (!field.isVisibleTo(&view))
        return field.textStyle() == TextField::Style::Countdown
            ? field.property(countdownStartProperty).toString()
            : QString();
    return field.height() > 0 ? field.stringValue() : QString();
}

QList<TextField *> spokenFields(const QWidget &view) {
    auto fields = view.findChildren<TextField *>();
    const auto isUnspoken = [&view](const TextField *field) { return spokenText(*field, view).isEmpty(); };
    fields.erase(std::remove_if(fields.begin(), fields.end(), isUnspoken), fields.end());
    return fields;
}

QString spokenHeading(const QWidget &view) {
    QStringList headings;
    const auto fields = spokenFields(view);
    for (const auto *field : fields) {
        if (field->textStyle() == TextField::Style::Heading)
            headings << spokenText(*field, view);
    }
    return headings.join(u'\n');
}

// Everything below the heading, in reading order: a row is "caption: value".
QString restOf(const QWidget &view) {
    QStringList lines;
    QString caption;
    const auto fields = spokenFields(view);
    for (const auto *field : fields) {
        if (field->textStyle() == TextField::Style::Caption)
            caption = spokenText(*field, view) + QStringLiteral(": ");
        else if (field->textStyle() != TextField::Style::Heading)
            lines << std::exchange(caption, {}) + spokenText(*field, view);
    }
    return lines.join(u'\n');
}

class AccessibleTextField final : public QAccessibleWidget {
public:
    explicit AccessibleTextField(TextField *field)
        : QAccessibleWidget(field, QAccessible::StaticText) { }

    QString text(QAccessible::Text kind) const override {
        return kind == QAccessible::Name ? field().stringValue() : QAccessibleWidget::text(kind);
    }

    QVector<QPair<QAccessibleInterface *, QAccessible::Relation>> relations(
        QAccessible::Relation match) const override {
        auto found = QAccessibleWidget::relations(match);
        const auto *row = qobject_cast<RowView *>(field().parentWidget());
        const bool isValue = field().textStyle() == TextField::Style::Value;
        const auto sought = isValue ? QAccessible::Label : QAccessible::Labelled;
        if (!(match & sought))
            return found;
        const auto relatesTo = [&found, sought](QWidget *widget) {
            found.append({ QAccessible::queryAccessibleInterface(widget), sought });
        };
        if (!row)
            relatesTo(field().window()); // a part of what the window says
        for (auto *other : row ? row->findChildren<TextField *>() : QList<TextField *>()) {
            if (other != &field())
                relatesTo(other);
        }
        return found;
    }

private:
    TextField &field() const { return *static_cast<TextField *>(widget()); }
};

class AccessibleNotice final : public QAccessibleWidget {
public:
    explicit AccessibleNotice(QtNoticeWindow *window)
        : QAccessibleWidget(window, QAccessible::Notification) { }

    // Without its shadow.
    QRect rect() const override {
        const auto &window = *static_cast<QtNoticeWindow *>(widget());
        return window.cardRect().translated(window.pos());
    }

    QString text(QAccessible::Text kind) const override {
        if (kind == QAccessible::Name)
            return spokenHeading(*widget());
        if (kind == QAccessible::Description)
            return restOf(*widget());
        return QAccessibleWidget::text(kind);
    }
};

/// What is spoken beside a notice: a notification of its own, of which there is nothing to see.
class SpokenText final : public QAccessibleInterface {
public:
    void setText(const QWidget &window, const QString &text) {
        window_ = &window;
        text_ = text;
    }

    bool isValid() const override { return true; }
    QObject *object() const override { return nullptr; }
    QAccessibleInterface *childAt(int, int) const override { return nullptr; }
    QAccessibleInterface *parent() const override {
        return QAccessible::queryAccessibleInterface(const_cast<QWidget *>(window_.data()));
    }
    QAccessibleInterface *child(int) const override { return nullptr; }
    int childCount() const override { return 0; }
    int indexOfChild(const QAccessibleInterface *) const override { return -1; }
    QString text(QAccessible::Text kind) const override {
        return kind == QAccessible::Name ? text_ : QString();
    }
    void setText(QAccessible::Text, const QString &) override { }
    QRect rect() const override { return {}; }
    QAccessible::Role role() const override { return QAccessible::Notification; }
    QAccessible::State state() const override { return {}; }

private:
    QPointer<const QWidget> window_;
    QString text_;
};

void speak(const TextField &field) {
    // Qt owns it, and deletes it with all the others.
    static auto *const spoken = new SpokenText;
    static const auto id = QAccessible::registerAccessibleInterface(spoken);
    Q_UNUSED(id)
    spoken->setText(*field.window(), field.stringValue());
    QAccessibleEvent shown(spoken, QAccessible::ObjectShow);
    QAccessible::updateAccessibility(&shown);
}

void filterEvent(QAccessibleEvent *event);

void pass(QAccessibleEvent *event) {
    QAccessible::installUpdateHandler(nullptr);
    QAccessible::updateAccessibility(event);
    QAccessible::installUpdateHandler(filterEvent);
}

void filterEvent(QAccessibleEvent *event) {
    if (const auto *field = qobject_cast<TextField *>(event->object());
        field && event->type() == QAccessible::Alert)
        return speak(*field);
    // When a notice is spoken the window decides: it also appears with the keyboard, or with another notice.
    if (event->type() != QAccessible::ObjectShow || !qobject_cast<QtNoticeWindow *>(event->object()))
        pass(event);
}

QAccessibleInterface *makeInterface(const QString &, QObject *object) {
    if (auto *window = qobject_cast<QtNoticeWindow *>(object))
        return new AccessibleNotice(window);
    if (auto *field = qobject_cast<TextField *>(object))
        return new AccessibleTextField(field);
    return nullptr;
}

} // namespace

void NoticeAccessibility::install() {
    QAccessible::installFactory(makeInterface);
    QAccessible::installUpdateHandler(filterEvent);
}

void NoticeAccessibility::announce(QWidget &window) {
    if (!QAccessible::isActive())
        return;
    QAccessibleEvent shown(&window, QAccessible::ObjectShow);
    pass(&shown);
}
