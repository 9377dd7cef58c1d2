// Compiled into every program that looks for leaks: what libraries make once a process and never give back.
extern "C" [[gnu::visibility("default")]] const char *__lsan_default_suppressions();

extern "C" const char *__lsan_default_suppressions() {
    return "leak:libfontconfig\n"
           "leak:QScroller::grabGesture\n"; // the recogniser of a gesture, one a process
}
