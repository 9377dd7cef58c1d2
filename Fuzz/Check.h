#pragma once

#include <cstdlib>

/// Ends the run when a promise is broken; the fuzzer keeps the bytes that broke it.
inline void check(bool promise) {
    if (!promise)
        std::abort();
}
