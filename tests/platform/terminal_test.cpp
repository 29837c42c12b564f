#include "platform/terminal/terminal.h"

#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
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

TEST(Terminal, ShowsNothingWhileTypingIsHiddenAndIsThenAsBefore) {
  const tests::PseudoTerminal pair;
  {
    const terminal::HiddenTyping hidden(pair.program.get());
    EXPECT_TRUE(isMute(pair));
    pair.press(
        "sex\x7f"
        "cret\n");
    char line[64];
    const auto count = ::read(pair.program.get(), line, sizeof line);
    EXPECT_EQ(std::string_view(line, static_cast<std::size_t>(count)), "secret\n");
  }
  EXPECT_FALSE(isMute(pair));
  ::fcntl(pair.user.get(), F_SETFL, O_NONBLOCK);
  char shown[64];
  EXPECT_EQ(::read(pair.user.get(), shown, sizeof shown), -1) << "something was shown";
  const Descriptor none(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  const terminal::HiddenTyping nothingToHide(none.get());
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
