#pragma once

#include <QObject>

class QWidget;

/// A layout constraint of a form: one number that drives one height. It belongs to the widget it drives.
class LayoutConstraint : public QObject {
    Q_OBJECT

public:
    /// The form says which widget is driven: one with the property `heightConstraint` or `gapConstraint`,
    /// whose value is the constraint's name. A height is an upper limit, and 0 folds the widget away; a gap
    /// is exact. The constraint starts with the height that the form gives.
    static void createFromForm(QWidget *view);

    double constant() const { return constant_; }

    /// In pixels at scale 1.
    void setConstant(double constant);

private:
    enum class Kind { HeightLimit, Gap };

    LayoutConstraint(QWidget *driven, const QString &name, Kind kind);

    QWidget *driven_;
    Kind kind_;
    double constant_;
};
