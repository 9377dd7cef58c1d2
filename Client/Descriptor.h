#pragma once

#include <unistd.h>

#include <utility>

namespace NoticeClient {

/// Owns an open file.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number)
        : number_(number) { }
    Descriptor(Descriptor &&other) noexcept
        : number_(other.release()) { }
    Descriptor &operator=(Descriptor &&other) noexcept {
        reset();
        number_ = other.release();
        return *this;
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor() { reset(); }

    explicit operator bool() const { return number_ >= 0; }
    int number() const { return number_; }
    int release() { return std::exchange(number_, -1); }
    void reset() {
        if (number_ >= 0)
            ::close(std::exchange(number_, -1));
    }

private:
    int number_ = -1;
};

} // namespace NoticeClient
