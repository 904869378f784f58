// Owner of a file descriptor.
#pragma once

#include <unistd.h>
#include <utility>

namespace qz::client {

class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number) : number_(number) { }
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) { }
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(number_, other.number_);
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { reset(); }

    int number() const { return number_; } // -1 when there is none
    void reset()
    {
        if (number_ >= 0) {
            ::close(std::exchange(number_, -1));
        }
    }

private:
    int number_ = -1;
};

} // namespace qz::client
