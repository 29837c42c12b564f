#include "runtimes/catalog/found_programs.h"

#include <gtest/gtest.h>

#include "platform/queues/manual_main_queue.h"
#include "support/environment.h"
#include "support/temporary_folder.h"

namespace vantrell::tests {
namespace {

/// `about`: what invalidates the answer.
TEST(FoundPrograms, AnswersStayTrueAndAreNotSearchedForEachTime) {
  TemporaryFolder home;
  Environment process;
  process.set("HOME", home.path());
  process.set("PATH", home.folder("bin"));
  const auto install = [&](const std::string& name) { return home.program(name, "#!/bin/sh\n"); };
  ManualMainQueue main;
  FoundPrograms programs(main);
  const auto has = [&](std::optional<std::string> custom = std::nullopt) {
    return programs.has(AgentProvider::kimi, custom);
  };

  EXPECT_FALSE(has());
  const std::string kimi = install("bin/kimi");
  EXPECT_FALSE(has()) << "a missing program is not searched at every question";
  main.advance(FoundPrograms::missingFor);
  EXPECT_TRUE(has());
  unlink(kimi.c_str());
  EXPECT_FALSE(has()) << "one that was found has gone";
  EXPECT_TRUE(has(install("elsewhere"))) << "another path is set";
  install("other/kimi");
  process.set("PATH", home / "other");
  EXPECT_TRUE(has()) << "PATH has changed";
  EXPECT_TRUE(has("/no/such/program")) << "a path that is no program does not hide the others";
}

}  // namespace
}  // namespace vantrell::tests
