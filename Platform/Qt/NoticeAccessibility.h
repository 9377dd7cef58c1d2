#pragma once

/// What assistive technology is told of a notice: the window is an alert with the notice's title and text,
/// every text has itself as its name, and a row's value is labelled by its caption.
namespace NoticeAccessibility {

/// Called once, when the QApplication exists.
void install();

} // namespace NoticeAccessibility
