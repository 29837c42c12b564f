// Owns a file descriptor.
#pragma once

#include <cerrno>
#include <unistd.h>
#include <utility>

namespace vantrell {

class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) {
      reset();
      number_ = std::exchange(other.number_, -1);
    }
    return *this;
  }
  ~Descriptor() { reset(); }

  explicit operator bool() const { return number_ >= 0; }
  int get() const { return number_; }
  int release() { return std::exchange(number_, -1); }
  void reset() { close(); }
  /// False, with errno, when the system reports a late write error.
  bool close() {
    const int number = release();
    // Linux frees the number even when close() was interrupted.
    return number < 0 || ::close(number) == 0 || errno == EINTR;
  }

 private:
  int number_ = -1;
};

}  // namespace vantrell
