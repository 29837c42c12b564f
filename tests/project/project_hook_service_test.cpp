#include "project/project_hook_service.h"

#include <filesystem>
#include <gmock/gmock.h>

#include "platform/process_fixture.h"
#include "support/environment.h"
#include "support/temporary_folder.h"

namespace vantrell::tests {
namespace {

using ::testing::EndsWith;
using ::testing::StartsWith;

class ProjectHookRun : public ProcessTest {
 protected:
  /// An executable file of the project.
  std::string hook(std::string_view name, std::string_view script) const {
    const auto path = folder.file("project/" + std::string(name), script);
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    return std::string(name);
  }
  void begin(const std::string& path) {
    service->run({.event = ProjectHookEvent::afterTask, .relativeExecutablePath = path},
                 folder / "project/",
                 [this](ProjectHookOutcome outcome) { replies.push_back(std::move(outcome)); });
  }
  ProjectHookOutcome outcome(const std::string& path) {
    begin(path);
    EXPECT_TRUE(replies.empty());
    EXPECT_TRUE(main_.runUntil([&] { return !replies.empty(); }));
    return std::exchange(replies, {}).at(0);
  }
  /// Waits until the hook has written that file.
  void await(const std::string& name) {
    EXPECT_TRUE(main_.runUntil([&] {
      main_.post([] {});
      return std::filesystem::exists(folder / ("project/" + name));
    }));
  }

  TemporaryFolder folder;
  std::shared_ptr<ProjectHookService> service = std::make_shared<ProjectHookService>(main_, pool_);
  std::vector<ProjectHookOutcome> replies;
};

TEST_F(ProjectHookRun, SaysHowItEnded) {
  folder.file("outside", "#!/bin/sh\n");
  std::filesystem::permissions(folder / "outside", std::filesystem::perms::owner_all);
  folder.file("projectile", "#!/bin/sh\n");
  std::filesystem::permissions(folder / "projectile", std::filesystem::perms::owner_all);
  hook("run", "#!/bin/sh\necho here\n");
  std::filesystem::create_symlink(folder / "outside", folder / "project/leads out");
  std::filesystem::create_symlink(folder.path(), folder / "project/up");
  std::filesystem::create_symlink("run", folder / "project/leads in");
  folder.file("project/plain", "#!/bin/sh\n");
  const auto skipped = [](const std::string& path) {
    return "Hook skipped: " + path + " is not an executable file inside the project.";
  };
  const struct {
    std::string path, outcome;
    bool succeeded = false;
  } cases[] = {
      {hook("silent", "#!/bin/sh\n"), "Hook completed.", true},
      {hook("fails", "#!/bin/sh\necho ' out '; echo err >&2; exit 3\n"),
       "Hook exited with status 3.\nout \nerr"},
      {hook("is killed", "#!/bin/sh\nkill -9 $$\n"), "Hook exited with status 137.\n"},
      {hook("binary", "#!/bin/sh\nprintf 'a\\377b'\n"), "a\xEF\xBF\xBD\x62", true},
      {hook("no program", "echo it is no shell that starts it\n"),
       "Hook failed to start: Exec format error"},
      {hook("$(touch x);|", "#!/bin/sh\nprintf '%s.' $# \"$0\"\n"),
       "0." + folder.path() + "/project/$(touch x);|.", true},
      {"sub/../run", "here", true},
      {"leads in", "here", true},
      {"plain", skipped("plain")},
      {"missing", skipped("missing")},
      {".", skipped(".")},
      {"../outside", skipped("../outside")},
      {"../projectile", skipped("../projectile")},
      {"leads out", skipped("leads out")},
      {"up/outside", skipped("up/outside")},
      {"/bin/true", skipped("/bin/true")},
  };
  for (const auto& each : cases) {
    const auto found = outcome(each.path);
    EXPECT_EQ(found.text, each.outcome) << each.path;
    EXPECT_EQ(found.succeeded, each.succeeded) << each.path;
  }
  EXPECT_FALSE(std::filesystem::exists(folder / "project/x"));
}

TEST_F(ProjectHookRun, RunsInTheProjectWithTheApplicationsEnvironmentAndNoTerminal) {
  vantrell::tests::Environment process;
  process.set("SOME_KEY", "of the user");
  hook("tells",
       "#!/bin/sh\necho \"$PWD $SOME_KEY $VANTRELL_HOOK_EVENT $VANTRELL_WORKSPACE\"\n"
       "cat; (: </dev/tty) 2>/dev/null || echo none\n");
  const std::string project = folder / "project";
  EXPECT_EQ(outcome("tells").text, project + " of the user afterTask " + project + "\nnone");
}

TEST_F(ProjectHookRun, EndsWithItsWholeGroupWhenItsTimeIsUp) {
  begin(hook("hangs",
             "#!/bin/sh\ntrap 'echo asked to end; exit 0' TERM\nsleep 1000 &\n"
             "echo $! > id; echo begun; touch ready; wait\n"));
  await("ready");
  ASSERT_TRUE(main_.runUntil([&] { return main_.hasTimers(); }));
  main_.advance(29s);
  EXPECT_TRUE(replies.empty());
  main_.advance(1s);
  ASSERT_TRUE(main_.runUntil([&] { return !replies.empty(); }));
  // Between the two, the shell may say that its child was terminated.
  EXPECT_THAT(replies[0].text, StartsWith("Hook timed out after 30 seconds.\nbegun\n"));
  EXPECT_THAT(replies[0].text, EndsWith("asked to end"));
  const auto id = std::atoi(TemporaryFolder::contentOf(folder / "project/id").c_str());
  ASSERT_GT(id, 0);
  EXPECT_TRUE(waitForEnd(id));
}

TEST_F(ProjectHookRun, WritesAsMuchAsItLikesAndItsEndIsKept) {
  const std::string text =
      outcome(hook("chatty", "#!/bin/sh\nyes 'a line' | head -n 1000000; echo the end\n")).text;
  EXPECT_THAT(text, StartsWith("[The last 64 KiB of 7000008 bytes of output:]\n"));
  EXPECT_THAT(text, EndsWith("a line\nthe end"));
  EXPECT_LT(text.size(), ProjectHookService::keptOutput + 100);
}

TEST_F(ProjectHookRun, IsNotWaitedForByWhatItLeavesBehind) {
  EXPECT_EQ(outcome(hook("leaves", "#!/bin/sh\nsleep 1000 &\necho done\n")).text, "done");
  // Out of its group, with the output still open.
  EXPECT_EQ(outcome(hook("escapes",
                         "#!/bin/sh\nsetsid sleep 1000 &\n"
                         "until [ \"$(ps -o sid= $!)\" -eq $! ]; do :; done\n"
                         "echo $! > id; echo done\n"))
                .text,
            "done");
  const auto id = std::atoi(TemporaryFolder::contentOf(folder / "project/id").c_str());
  ASSERT_GT(id, 0);
  ::kill(id, SIGKILL);
}

TEST_F(ProjectHookRun, EndsWithTheServiceWithoutAReply) {
  begin(hook("hangs", "#!/bin/sh\necho $$ > id.new; mv id.new id; exec sleep 1000\n"));
  await("id");
  const auto id = std::atoi(TemporaryFolder::contentOf(folder / "project/id").c_str());
  service.reset();
  EXPECT_TRUE(waitForEnd(id));
  main_.runReady();
  EXPECT_TRUE(replies.empty());
}

}  // namespace
}  // namespace vantrell::tests
