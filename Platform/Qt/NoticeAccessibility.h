#pragma once

class QWidget;

/// What assistive technology is told of a notice. The window is a notification, named by its heading and
/// described by everything else in it, so that a screen reader speaks a notice whole and once when it
/// appears; each text has itself as its name, and a row's value is labelled by its caption.
namespace NoticeAccessibility {

/// Called once, when the QApplication exists.
void install();

/// Has the notice spoken that the window shows. A window that gets the keyboard is spoken by itself.
void announce(QWidget &window);

} // namespace NoticeAccessibility
