// A terminal, and the end at which its user sits.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string_view>
#include <unistd.h>

#include "platform/files/descriptor.h"

namespace vantrell::tests {

struct PseudoTerminal {
  PseudoTerminal() : user(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    EXPECT_EQ(::grantpt(user.get()), 0);
    EXPECT_EQ(::unlockpt(user.get()), 0);
    program = Descriptor(::open(::ptsname(user.get()), O_RDWR | O_NOCTTY | O_CLOEXEC));
  }
  void press(std::string_view keys) const {
    EXPECT_EQ(::write(user.get(), keys.data(), keys.size()), std::ssize(keys));
  }
  Descriptor user;
  Descriptor program;
};

}  // namespace vantrell::tests
