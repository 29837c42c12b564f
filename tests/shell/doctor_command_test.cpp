// The doctor of the built program.
#include "shell/program_fixture.h"

namespace vantrell::tests {
namespace {

class DoctorProgram : public TerminalProgram {};

TEST_F(DoctorProgram, SaysOfABareMachineWhatToDo) {
  const auto told = does({"doctor"});
  EXPECT_EQ(code(told), 1) << told->error;
  for (const auto* line :
       {"✗ Provider runtimes: No subscription or local runtime is ready.\n    Open Providers",
        "! Git safety: No Git repository was detected.\n    Initialize Git",
        "✓ Internet relay: Off\n"}) {
    EXPECT_TRUE(told->output.contains(line)) << told->output;
  }
  const auto report = json::parseObject(does({"doctor", "--json"})->output);
  ASSERT_TRUE(report);
  const auto* checks = report->find("checks")->asArray();
  ASSERT_TRUE(checks);
  EXPECT_EQ(checks->size(), 5u);
}

TEST_F(DoctorProgram, PassesWhereARuntimeIsThere) {
  home.program(".local/bin/kimi", "#!/bin/sh\nexit 0\n");
  const auto told = does({"doctor"});
  EXPECT_EQ(code(told), 0) << told->output << told->error;
  EXPECT_TRUE(told->output.contains("Kimi ready.")) << told->output;
}

}  // namespace
}  // namespace vantrell::tests
