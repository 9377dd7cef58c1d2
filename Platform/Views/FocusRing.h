#pragma once

#include <QWidget>

/// Whether a focused control shows that it is: once the user goes about with the keyboard in the active
/// window. A control that merely begins with the focus looks like any other.
inline bool showsFocusRing(const QWidget &control) {
    return control.hasFocus() && control.isActiveWindow()
        && control.window()->testAttribute(Qt::WA_KeyboardFocusChange);
}
