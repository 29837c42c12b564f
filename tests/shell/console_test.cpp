#include "shell/terminal/console.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include "platform/queues/manual_main_queue.h"
#include "support/pseudo_terminal.h"
#include "support/terminal_screen.h"

namespace vantrell::shell {
namespace {

TEST(Console, LetsOnlyOurOwnSequencesReachATerminal) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"plain\ttext\n", "plain\ttext\n"},
      {"\x1b[1mbold\x1b[0m", "\x1b[1mbold\x1b[0m"},
      {"\r\x1b[Kstatus\r", "\r\x1b[Kstatus\r"},
      {"\x1b[2Aup", "␛[2Aup"},
      {"\x1b]0;title\x07", "␛]0;title␇"},
      {"\x1b[2;5H", "␛[2;5H"},
      {"\x1b[?1049h", "␛[?1049h"},
      {"over\rwritten", "over␍written"},
      {"\x1b", "␛"},
      {"a\xE2\x80\xAE z", "a<U+202E> z"},
      {"\xC2\x9B"
       "31m",
       "<U+009B>31m"},
      {"\xFF", "\xEF\xBF\xBD"},
  };
  for (const auto& [text, safe] : cases) EXPECT_EQ(safeForTerminal(text), safe);
}

/// What a person sees at a terminal that is both outputs.
class ConsoleAtATerminal : public testing::Test {
 protected:
  std::string shown() {
    bool isDone = false;
    console.whenWritten([&] { isDone = true; });
    EXPECT_TRUE(main.runUntil([&] { return isDone; }));
    // The kernel hands a terminal's output on in pieces, later than it takes them.
    constexpr char last = '\1';
    EXPECT_EQ(::write(pair.program.get(), &last, 1), 1);
    std::string all;
    for (char byte = 0; ::read(pair.user.get(), &byte, 1) == 1 && byte != last;) all += byte;
    tests::TerminalScreen screen;
    screen.write(all);
    return screen.text();
  }
  tests::PseudoTerminal pair;
  ManualMainQueue main;
  Console console{
      main, {.output = pair.program.get(), .error = pair.program.get()}, {{"TERM", "xterm"}}, {}};
};

TEST_F(ConsoleAtATerminal, StatusLeavesNothingBehindAndComplaintsKeepTheirPlace) {
  console.status("Connecting to Kimi…");
  console.write("one\n");
  console.complain("two");
  console.write("thr");
  console.status("not within a line");
  console.complain("four");
  console.write("ee\n");
  EXPECT_EQ(shown(), "one\nvantrell: two\nthr\nvantrell: four\nee\n");
}

TEST_F(ConsoleAtATerminal, QuestionStaysLastUntilItIsAnsweredOrWithdrawn) {
  console.status("Waiting");
  console.ask("Yes? ");
  console.write("by the way\n");
  console.complain("oh");
  console.status("no place for it");
  console.withdrawQuestion();
  console.write("end\n");
  EXPECT_EQ(shown(), "by the way\nvantrell: oh\nYes?\nend\n");
}

TEST(Console, FinishesWhenAllIsReadOrTheLimitIsOver) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const Descriptor reading(ends[0]), writing(ends[1]);
  ManualMainQueue main;
  Console console(main, {.output = writing.get(), .error = writing.get()}, {}, {});
  console.write(std::string(1 << 20, 'x'));
  std::vector<bool> told;
  console.finish(std::chrono::hours(24), [&](bool isWritten) { told.push_back(isWritten); });
  main.runReady();
  EXPECT_TRUE(told.empty());
  console.finish(std::chrono::milliseconds(200),
                 [&](bool isWritten) { told.push_back(isWritten); });
  main.advance(std::chrono::milliseconds(200));
  EXPECT_EQ(told, std::vector{true}) << "once";
}

}  // namespace
}  // namespace vantrell::shell
