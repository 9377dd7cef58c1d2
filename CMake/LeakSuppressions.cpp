// Compiled into every target that looks for leaks, weak since a program has it several times: what libraries
// make once a process and never give back.

extern "C" [[gnu::visibility("default"), gnu::weak]] const char *__lsan_default_suppressions();
extern "C" [[gnu::visibility("default"), gnu::weak]] const char *__lsan_default_options();
extern "C" [[gnu::visibility("default"), gnu::weak]] const char *__asan_default_options();

extern "C" const char *__lsan_default_suppressions() {
    return "leak:libfontconfig\n"
           "leak:libgnustep-base\n" // classes, and what its thread has
           "leak:libobjc\n"
           "leak:QScroller::grabGesture\n"; // the recogniser of a gesture, one a process
}

// A program without a fault says nothing.
extern "C" const char *__lsan_default_options() {
    return "print_suppressions=0";
}

// Where the variables of a thread stand is not kept track of: the search for leaks then looks at those of a
// thread in the library's pool whose picture reader was loaded late, and breaks down.
extern "C" const char *__asan_default_options() {
    return "intercept_tls_get_addr=0";
}
