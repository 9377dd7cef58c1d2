#include "Platform/Qt/Desktop.h"

#include <QWindow>

#import <AppKit/AppKit.h>
#import <CoreGraphics/CoreGraphics.h>

namespace {

NSWindow *windowOf(const QWindow *window) {
    return [reinterpret_cast<NSView *>(window->winId()) window];
}

// The library knows one level for what is kept above others, which is higher than a notice's, and sets it
// anew whenever the window appears.
void setLevel(NSWindow *window, Qt::WindowFlags flags) {
    [window setLevel:flags & Qt::WindowStaysOnTopHint ? NSFloatingWindowLevel : NSNormalWindowLevel];
}

} // namespace

// The system has its fonts at hand.
void Desktop::beginLoadingFonts() { }
void Desktop::finishLoadingFonts() { }

void Desktop::prepare() { }

// It is known beforehand.
void Desktop::willAppear() { }

bool Desktop::isPresent() {
    // There is none in a session without a login window, such as one over the network.
    const auto session = CGSessionCopyCurrentDictionary();
    if (session)
        CFRelease(session);
    return session != nullptr;
}

QString Desktop::displayNames() {
    return QStringLiteral("The window server");
}

bool Desktop::isComposited(const QScreen *) {
    return true;
}

void Desktop::willMap(QWindow *window, bool) {
    @autoreleasepool {
        auto *native = windowOf(window);
        // The notice draws its own title strip, in the window's background colour; what the system would draw
        // over it is clear.
        [native setTitlebarAppearsTransparent:YES];
        [native setTitleVisibility:NSWindowTitleHidden];
        [native setCollectionBehavior:NSWindowCollectionBehaviorCanJoinAllSpaces
                | NSWindowCollectionBehaviorFullScreenAuxiliary | NSWindowCollectionBehaviorIgnoresCycle];
        // An agent is never the active application, and its windows stay.
        [native setHidesOnDeactivate:NO];
        setLevel(native, window->flags());
    }
}

void Desktop::didMap(QWindow *window) {
    @autoreleasepool {
        auto *native = windowOf(window);
        setLevel(native, window->flags());
        // In front of the active application's windows without becoming the active one.
        [native orderFrontRegardless];
    }
}

bool Desktop::canTakeFocus(QWindow *) {
    return true;
}
