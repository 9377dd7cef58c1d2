// Stands before the C library in a program under test: its wall clock is shifted by as many seconds as the
// file holds that SHIFTED_CLOCK names, as if somebody had set it. Every other clock goes on.

#include <cstdint>
#include <cstdlib>
#include <ctime>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

std::int64_t shift() {
    static const auto *seconds = [] {
        const char *path = std::getenv("SHIFTED_CLOCK");
        const int file = path ? ::open(path, O_RDONLY | O_CLOEXEC) : -1;
        void *mapped
            = file < 0 ? MAP_FAILED : ::mmap(nullptr, sizeof(std::int64_t), PROT_READ, MAP_SHARED, file, 0);
        if (file >= 0)
            ::close(file);
        return mapped == MAP_FAILED ? nullptr : static_cast<const volatile std::int64_t *>(mapped);
    }();
    return seconds ? *seconds : 0;
}

} // namespace

extern "C" {

__attribute__((visibility("default"))) int clock_gettime(clockid_t clock, timespec *now) noexcept {
    const auto result = static_cast<int>(::syscall(SYS_clock_gettime, clock, now));
    if (result == 0 && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE))
        now->tv_sec += shift();
    return result;
}

__attribute__((visibility("default"))) int gettimeofday(timeval *now, void *) noexcept {
    timespec precise {};
    const int result = clock_gettime(CLOCK_REALTIME, &precise);
    if (now) {
        now->tv_sec = precise.tv_sec;
        now->tv_usec = static_cast<suseconds_t>(precise.tv_nsec / 1000);
    }
    return result;
}

__attribute__((visibility("default"))) std::time_t time(std::time_t *seconds) noexcept {
    timespec now {};
    clock_gettime(CLOCK_REALTIME, &now);
    if (seconds)
        *seconds = now.tv_sec;
    return now.tv_sec;
}
}
