#pragma once

#include <QString>

class QScreen;
class QWindow;

/// What a window system needs told beyond what Qt says; one file a system, chosen by the build.
namespace Desktop {

/// Begins to load the fonts beside everything else, since they take longer than all the rest of opening a
/// window. Called once, after `prepare()`, as early as can be.
void beginLoadingFonts();

/// Waits for the end of that. Called before the first text is measured.
void finishLoadingFonts();

/// Called before QApplication is made and while there is no thread but the main one: chooses the window
/// system's back end and leaves out what a notice never uses.
void prepare();

/// Whether there is anything to connect to.
bool isPresent();

/// The displays that the environment names, for a line of text.
QString displayNames();

/// Called when a notice is about to be filled: asks the window system, without waiting for it, what has to be
/// known when the notice appears.
void willAppear();

/// Whether transparent parts of a window are seen through on that screen.
bool isComposited(const QScreen *screen);

/// Called each time before the window is mapped: it is shown on all workspaces, and above a full-screen
/// window too.
/// @param takesFocus  whether it asks for the keyboard when it appears
void willMap(QWindow *window, bool takesFocus);

/// Called each time after the window was mapped.
void didMap(QWindow *window);

/// Whether the window, the way it was mapped, can be given the keyboard.
bool canTakeFocus(QWindow *window);

} // namespace Desktop
