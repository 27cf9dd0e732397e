// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The owner of a file descriptor.
#pragma once

#include <unistd.h>

#include <utility>

namespace halyard::host {

/// Closes its descriptor when it goes; moves, never copies.
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
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { reset(); }

  int get() const { return number_; }
  explicit operator bool() const { return number_ >= 0; }
  void reset() {
    if (number_ >= 0) ::close(number_);
    number_ = -1;
  }
  int release() { return std::exchange(number_, -1); }

 private:
  int number_ = -1;
};

}  // namespace halyard::host
