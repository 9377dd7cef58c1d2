#include "Platform/Desktop.h"

#include <QScreen>
#include <QWindow>

#import <AppKit/AppKit.h>
#import <CoreGraphics/CoreGraphics.h>

namespace {

NSWindow *windowOf(const QWindow *window) {
    return [reinterpret_cast<NSView *>(window->winId()) window];
}

// Qt knows one level for what is kept above others, which is higher than a notice's, and sets it again
// whenever the window appears.
void setLevel(NSWindow *window, Qt::WindowFlags flags) {
    [window setLevel:flags & Qt::WindowStaysOnTopHint ? NSFloatingWindowLevel : NSNormalWindowLevel];
}

class MacDesktop final : public Desktop {
public:
    void prepare() override { }

    // The system has its fonts at hand.
    void beginLoadingFonts() override { }
    bool finishLoadingFonts() override { return true; }

    // The system's fallback goes by the user's languages.
    QString fontFamilyFor(const QLocale &) const override { return {}; }
    bool isPresent() const override {
        // There is none in a session without a login window, such as one over the network.
        const auto session = CGSessionCopyCurrentDictionary();
        if (session)
            CFRelease(session);
        return session != nullptr;
    }

    QString displayNames() const override { return QStringLiteral("The window server"); }

    // The system draws the shadow of its windows, and cuts their corners, by itself.
    bool isComposited() override { return false; }

    // The main screen is the one with the keyboard, which Qt calls the primary one.
    QScreen *activeScreen() override { return nullptr; }

    QRect workArea(const QScreen &screen) override { return screen.availableGeometry(); }

    // Every notice floats in one way.
    bool decideMapping(QWindow *, Keyboard) override { return true; }
    bool movesWindows() const override { return true; }

    void setShadow(QWindow *, const QRect &, const QMargins &) override { }

    void willMap(QWindow *window, Keyboard) override {
        @autoreleasepool {
            auto *native = windowOf(window);
            // The notice draws its own title strip, in the window's background colour; what the system would
            // draw over it is clear.
            [native setTitlebarAppearsTransparent:YES];
            [native setTitleVisibility:NSWindowTitleHidden];
            [native setCollectionBehavior:NSWindowCollectionBehaviorCanJoinAllSpaces
                    | NSWindowCollectionBehaviorFullScreenAuxiliary | NSWindowCollectionBehaviorIgnoresCycle];
            // An agent is never the active application, and its windows stay.
            [native setHidesOnDeactivate:NO];
            setLevel(native, window->flags());
        }
    }

    void didMap(QWindow *window) override {
        @autoreleasepool {
            auto *native = windowOf(window);
            setLevel(native, window->flags());
            // In front of the active application's windows without becoming the active one.
            [native orderFrontRegardless];
        }
    }

    void willUnmap(QWindow *) override { }
    void takeKeyboard(QWindow *window, Keyboard) override { window->requestActivate(); }
    void acceptKeyboard(QWindow *) override { }
    void whenShown(QWindow *, std::function<void()> shown) override { shown(); }
};

} // namespace

std::unique_ptr<Desktop> makeDesktop() {
    return std::make_unique<MacDesktop>();
}
