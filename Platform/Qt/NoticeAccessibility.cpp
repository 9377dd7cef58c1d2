#include "Platform/Qt/NoticeAccessibility.h"

#include "Platform/Qt/QtNoticeWindow.h"
#include "Platform/Views/RowView.h"
#include "Platform/Views/TextField.h"

#include <QAccessible>
#include <QAccessibleWidget>

namespace {

QString joinedTexts(const QWidget *view, TextField::Style style) {
    QStringList texts;
    const auto labels = view->findChildren<TextField *>();
    for (const auto *label : labels) {
        if (label->textStyle() == style && !label->stringValue().isEmpty())
            texts << label->stringValue();
    }
    return texts.join(u'\n');
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
        const bool isCaption = field().textStyle() == TextField::Style::Caption;
        const auto sought = isValue ? QAccessible::Label : QAccessible::Labelled;
        if (!row || !(isValue || isCaption) || !(match & sought))
            return found;
        const auto fields = row->findChildren<TextField *>();
        for (auto *other : fields) {
            if (other != &field())
                found.append({ QAccessible::queryAccessibleInterface(other), sought });
        }
        return found;
    }

private:
    TextField &field() const { return *static_cast<TextField *>(widget()); }
};

class AccessibleNotice final : public QAccessibleWidget {
public:
    explicit AccessibleNotice(QtNoticeWindow *window)
        : QAccessibleWidget(window, QAccessible::AlertMessage) { }

    QString text(QAccessible::Text kind) const override {
        if (kind == QAccessible::Name)
            return joinedTexts(widget(), TextField::Style::Heading);
        if (kind == QAccessible::Description)
            return joinedTexts(widget(), TextField::Style::Body);
        return QAccessibleWidget::text(kind);
    }
};

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
}
