#include "platform/terminal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <termios.h>
#include <thread>
#include <unistd.h>

#include "platform/descriptor.h"

namespace vantrell {
namespace {

/// A terminal, and the end at which its user sits.
struct Pair {
  Pair() : user(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    ::grantpt(user.get());
    ::unlockpt(user.get());
    terminal = Descriptor(::open(::ptsname(user.get()), O_RDWR | O_NOCTTY | O_CLOEXEC));
  }
  bool isMute() const {
    termios state{};
    return ::tcgetattr(terminal.get(), &state) == 0 && !(state.c_lflag & ECHO);
  }
  Descriptor user;
  Descriptor terminal;
};

TEST(Terminal, HiddenLineIsReadAsItIsTypedAndShownNowhere) {
  const std::pair<std::string, std::optional<std::string>> cases[] = {
      {"secret\r", "secret"},
      {"sex\x7f"
       "cret\n",
       "secret"},
      {"wrong\x15right\n", "right"},
      {"\x7f\n", ""},
      {"secret\x03", std::nullopt},
      {"secret\x04", std::nullopt},
  };
  for (const auto& [keys, expected] : cases) {
    const Pair pair;
    std::thread person([&] {
      while (!pair.isMute()) std::this_thread::yield();
      EXPECT_EQ(::write(pair.user.get(), keys.data(), keys.size()),
                static_cast<ssize_t>(keys.size()));
    });
    EXPECT_EQ(terminal::readHiddenLine(pair.terminal.get()), expected) << keys;
    person.join();
    EXPECT_FALSE(pair.isMute()) << "as before";
    ::fcntl(pair.user.get(), F_SETFL, O_NONBLOCK);
    char shown[64];
    EXPECT_EQ(::read(pair.user.get(), shown, sizeof shown), -1) << "something was shown";
  }
  const Descriptor none(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  EXPECT_FALSE(terminal::readHiddenLine(none.get()));
}

}  // namespace
}  // namespace vantrell
