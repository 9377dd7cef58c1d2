// Compiled into every target that looks for races, weak since a program has it several times: what libraries
// that are not built for it look like.

extern "C" [[gnu::visibility("default"), gnu::weak]] const char *__tsan_default_suppressions();
extern "C" [[gnu::visibility("default"), gnu::weak]] const char *__tsan_default_options();

extern "C" const char *__tsan_default_suppressions() {
    return
        // A connection's lock and the one over all connections are taken in both orders, the second way only
        // for a connection that nobody else has any more.
        "deadlock:libdbus-1.so\n"
        // A connection of the toolkit's own goes from the thread that makes it to the main thread unseen, as
        // below.
        "race:libdbus-1.so\n"
        // The locks of a class and of the run time in a single thread, at the first use of the class.
        "deadlock:libgnustep-base.so\n"
        // The buses and the readers of the window system's events have threads of their own.
        "race:libQt6DBus.so\n"
        "race:libQt6XcbQpa.so\n"
        "race:libQt6WaylandClient.so\n"
        "mutex:libQt6WaylandClient.so\n"
        // Their atomic counts and locks cannot be seen, so that memory that goes from thread to thread within
        // them looks unguarded. What our own code does with it is still watched.
        "called_from_lib:libQt6Core.so.6\n"
        "called_from_lib:libQt6Gui.so.6\n"
        // It counts the users of its tables in the same way.
        "race:libharfbuzz.so\n";
}

// As with the other sanitizers a report ends the program: an end by quick_exit would not tell of it.
extern "C" const char *__tsan_default_options() {
    return "halt_on_error=1";
}
