#include "platform/process/foreground_program.h"

#include <csignal>
#include <gtest/gtest.h>

#include "support/in_child.h"

namespace vantrell::tests {
namespace {

TEST(ForegroundProgram, TellsHowItEndedWhateverWasInheritedForTheEndOfChildren) {
  struct Case {
    std::string script;
    int code;
  };
  for (const auto& [script, code] : {Case{"exit 0", 0}, {"exit 3", 3}, {"kill -9 $$", 128 + 9}}) {
    for (const auto inherited : {SIG_DFL, SIG_IGN}) {
      const int told = inChild([&] {
        std::signal(SIGCHLD, inherited);
        const auto ended = runInForeground("/bin/sh", {"-c", script}, {});
        return ended ? ended->code() : 126;
      });
      EXPECT_EQ(told, code) << script << (inherited == SIG_IGN ? ", ignored" : "");
    }
  }
}

}  // namespace
}  // namespace vantrell::tests
