#include "Platform/Qt/QtApplication.h"

#include "Platform/Desktop.h"
#include "Platform/Qt/NoticeAccessibility.h"
#include "Platform/Qt/QtNoticeWindow.h"
#include "Platform/Qt/StandardStreams.h"
#include "Platform/Qt/TerminationSignals.h"
#include "Platform/Views/NoticeStyle.h"

#include <QAccessible>
#include <QApplication>

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <utility>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace {

QtApplication *theApplication = nullptr;

bool desktopIsOpen = false;

// Qt ends the process by itself, with an abort or a status of 1, when there is no display or when it goes.
// Both are announced here first, and are ordinary ends of an agent.
void handleQtMessage(QtMsgType type, const QMessageLogContext &context, const QString &text) {
    const bool displayIsGone = text.startsWith(QLatin1String("The X11 connection broke"))
        || text.startsWith(QLatin1String("The Wayland connection broke"));
    if (displayIsGone) {
        // A thread of Qt's own may notice it as well. It waits here, since what it would do next is to end
        // the process in Qt's way.
        static std::recursive_mutex ending;
        const std::lock_guard lock(ending);
        if (theApplication)
            theApplication->endWithoutDesktop(QStringLiteral("the connection to the display broke"));
    }
    if (theApplication && type == QtFatalMsg && !desktopIsOpen)
        theApplication->endWithoutDesktop(
            theApplication->desktop().displayNames() + QStringLiteral(" cannot be opened"));
    if (theApplication && QByteArrayView(context.category).startsWith("agent."))
        theApplication->reportError(text);
    // What Qt says of its failing attempts before is no second line.
    if (desktopIsOpen && type != QtDebugMsg && type != QtInfoMsg)
        StandardStreams::printErrorLine(text);
}

} // namespace

QtApplication::QtApplication(char *program, ErrorReporter reportError)
    : arguments_ { program }
    , reportError_(std::move(reportError))
    , desktop_(makeDesktop()) {
    theApplication = this;
    StandardStreams::protect();
    terminationSignals_ = std::make_unique<TerminationSignals>();
    // First what writes to the environment: the font library reads it, on its own thread.
    desktop_->prepare();
    desktop_->beginLoadingFonts();
}

QtApplication::~QtApplication() {
    theApplication = nullptr;
}

void QtApplication::openDesktop() {
    qInstallMessageHandler(handleQtMessage);
    QApplication::setStyle(new NoticeStyle);
    static char nameOption[] = "-name"; // of X11 windows
    instanceName_ = QGuiApplication::desktopFileName().toUtf8();
    if (!instanceName_.isEmpty())
        arguments_.insert(arguments_.end(), { nameOption, instanceName_.data() });
    argumentCount_ = static_cast<int>(arguments_.size());
    application_ = std::make_unique<QApplication>(argumentCount_, arguments_.data());
    QApplication::setQuitOnLastWindowClosed(false);
    // A system that ends its applications by an event of its own ends this one in the ordinary way.
    QObject::connect(application_.get(), &QCoreApplication::aboutToQuit, [this] { endProcess(); });
    desktopIsOpen = true;
    if (!desktop_->finishLoadingFonts())
        reportError_(QStringLiteral("No font is installed: a notice shows boxes in the place of letters"));
    NoticeAccessibility::install();
    // First the class of X11 windows, by which the desktop entry is found, then what screen readers say.
    QCoreApplication::setApplicationName(QGuiApplication::desktopFileName());
    window_ = std::make_unique<QtNoticeWindow>(*desktop_);
    QCoreApplication::setApplicationName(brand_);
}

void QtApplication::setBrand(const QString &name, const QString &desktopEntry) {
    brand_ = name;
    QGuiApplication::setDesktopFileName(desktopEntry);
}

int QtApplication::run(ApplicationDelegate &delegate, const std::function<void()> &listen,
    const std::function<void()> &whenDesktopIsOpen) {
    delegate_ = &delegate;
    delegate.applicationDidFinishLaunching();
    if (!desktop_->isPresent())
        endWithoutDesktop(QStringLiteral("neither DISPLAY nor WAYLAND_DISPLAY names a display"));
    listen();
    openDesktop();
    whenDesktopIsOpen();
    terminationSignals_->attach([this] { endProcess(); });
    // Not QApplication's: it begins with accessibility.
    return QCoreApplication::exec();
}

void QtApplication::beginAccessibility() {
    QAccessible::setRootObject(application_.get());
}

void QtApplication::activate() {
    if (window_)
        window_->activate();
}

std::vector<NoticeWindow *> QtApplication::windows() const {
    if (!window_ || window_->isClosed())
        return {};
    return { window_.get() };
}

void QtApplication::endIsSettled() {
    if (delegate_)
        delegate_->applicationEndIsSettled();
}

void QtApplication::endBy(std::chrono::milliseconds interval) {
    TerminationSignals::endBy(interval);
}

void QtApplication::terminate(const Responder *) {
    endProcess();
}

void QtApplication::endWithoutDesktop(const QString &reason) {
    theApplication = nullptr; // whatever Qt says from here on is no second end
    const auto line = QStringLiteral("There is no desktop to show notices on: %1").arg(reason);
    StandardStreams::printErrorLine(QStringLiteral("NoticeAgent: ") + line);
    reportError_(line);
    endProcess();
}

void QtApplication::endProcess() {
    if (auto *delegate = std::exchange(delegate_, nullptr))
        delegate->applicationWillTerminate();
    if (window_)
        window_->giveKeyboardBack();
    std::fflush(stdout);
#if defined(__SANITIZE_ADDRESS__)
    TerminationSignals::cancelEnd();
    __lsan_do_leak_check();
#endif
    // Neither a request under way nor the desktop's own clearing up is waited for. Not by quick_exit, which
    // macOS lacks.
    std::_Exit(EXIT_SUCCESS);
}
