#pragma once

#include <QMargins>
#include <QRect>
#include <QString>

#include <functional>
#include <memory>

class QLocale;
class QScreen;
class QWindow;

/// Whether a notice asks for the keyboard: not at all, by itself, or since the user wants to type into it.
enum class Keyboard { Leave, Take, TakeForUser };

/// What a window system must be told beyond what Qt tells it. One implementation a system. Main thread only.
class Desktop {
public:
    virtual ~Desktop() = default;

    /// Chooses the window system's back end and leaves out what a notice never uses. Called before
    /// QApplication is made, while the process has no other thread.
    virtual void prepare() = 0;

    /// Begins to load the fonts beside everything else, since they take longer than all the rest of opening a
    /// window. Called once, after `prepare()`, as early as can be.
    virtual void beginLoadingFonts() = 0;

    /// Waits for the end of that. Called once, before the first text is measured.
    /// @return whether there is any font
    virtual bool finishLoadingFonts() = 0;

    /// The font family with the letter forms of a language that shares its letters with others, such as
    /// Chinese with Japanese. Empty for any other language.
    virtual QString fontFamilyFor(const QLocale &locale) const = 0;

    /// Whether there is anything to connect to.
    virtual bool isPresent() const = 0;

    /// The displays that the environment names, for a line of text.
    virtual QString displayNames() const = 0;

    /// Whether transparent parts of a window are seen through. A mapped one gets `QEvent::ThemeChange` when
    /// that may have changed.
    virtual bool isComposited() = 0;

    /// The screen with the window that the user works in; null when nobody can tell.
    virtual QScreen *activeScreen() = 0;

    /// The part of a screen that panels leave free.
    virtual QRect workArea(const QScreen &screen) = 0;

    /// Decides for a message whether the window manager places, stacks and focuses the notice, or the notice
    /// stands outside its order. Called before the notice is shown.
    /// @return whether a window that is mapped already was mapped in that way
    virtual bool decideMapping(QWindow *window, Keyboard keyboard) = 0;

    /// Whether the window system moves a window that the user drags; else it moves itself.
    virtual bool movesWindows() const = 0;

    /// Tells that a margin of the window is shadow, which is no part of the notice: clicks in it go through.
    /// Called with each new size of the window.
    /// @param card    the window without its shadow, in device-independent pixels
    virtual void setShadow(QWindow *window, const QRect &card, const QMargins &shadow) = 0;

    /// Called each time before the window is mapped, by the last decision.
    virtual void willMap(QWindow *window, Keyboard keyboard) = 0;

    /// Called each time after the window was mapped.
    virtual void didMap(QWindow *window) = 0;

    /// Called before a visible window is unmapped, and at the end of the process.
    virtual void willUnmap(QWindow *window) = 0;

    /// Gives the keyboard to the mapped window.
    virtual void takeKeyboard(QWindow *window, Keyboard keyboard) = 0;

    /// Lets the user give the keyboard to a window that appeared without it.
    virtual void acceptKeyboard(QWindow *window) = 0;

    /// Calls back once what was drawn last is on the screen, behind all input that came before.
    /// The call is dropped when another one is asked for first.
    virtual void whenShown(QWindow *window, std::function<void()> shown) = 0;
};

/// The desktop of this system.
std::unique_ptr<Desktop> makeDesktop();
