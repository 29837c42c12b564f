#include "platform/terminal/terminal.h"

#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <thread>
#include <unistd.h>

#include "platform/files/descriptor.h"
#include "support/in_child.h"
#include "support/pseudo_terminal.h"

namespace vantrell {
namespace {

bool isMute(const tests::PseudoTerminal& terminal) {
  termios state{};
  return ::tcgetattr(terminal.program.get(), &state) == 0 && !(state.c_lflag & ECHO);
}

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
    const tests::PseudoTerminal pair;
    std::thread person([&] {
      while (!isMute(pair)) std::this_thread::yield();
      pair.press(keys);
    });
    EXPECT_EQ(terminal::readHiddenLine(pair.program.get()), expected) << keys;
    person.join();
    EXPECT_FALSE(isMute(pair)) << "as before";
    ::fcntl(pair.user.get(), F_SETFL, O_NONBLOCK);
    char shown[64];
    EXPECT_EQ(::read(pair.user.get(), shown, sizeof shown), -1) << "something was shown";
  }
  const Descriptor none(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  EXPECT_FALSE(terminal::readHiddenLine(none.get()));
}

TEST(Terminal, DiscardInTheBackgroundStopsNobody) {
  const tests::PseudoTerminal pair;
  const int status = tests::inChild([&pair] {
    // A session of its own with this terminal, and a job in its background.
    if (::setsid() < 0 || ::ioctl(pair.program.get(), TIOCSCTTY, 0) != 0) return 1;
    const pid_t job = ::fork();
    if (job == 0) {
      std::signal(SIGTTOU, SIG_DFL);
      ::setpgid(0, 0);
      terminal::discardTypedAhead(pair.program.get());
      ::_exit(terminal::isInForeground(pair.program.get()) ? 2 : 0);
    }
    int end = 0;
    if (job < 0 || ::waitpid(job, &end, WUNTRACED) != job) return 3;
    if (WIFEXITED(end)) return WEXITSTATUS(end);
    ::kill(job, SIGKILL);
    ::waitpid(job, &end, 0);
    return 4;
  });
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(terminal::isInForeground(pair.program.get())) << "it is not ours";
}

}  // namespace
}  // namespace vantrell
