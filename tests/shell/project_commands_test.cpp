#include <gmock/gmock.h>

#include "shell/program_fixture.h"

namespace vantrell::tests {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

/// The commands about what lies in a project: what has changed, notes on it, hooks.
class ProjectCommands : public TerminalProgram {
 protected:
  using Words = std::vector<std::string>;

  void git(Words words) {
    words.insert(words.begin(), {"-C", project, "-c", "user.name=Ada", "-c", "user.email=a@b.c"});
    const auto done =
        run({.executable = "/usr/bin/git",
             .arguments = std::move(words),
             .environment = {{"HOME", home.path()}, {"GIT_CONFIG_SYSTEM", "/dev/null"}}});
    EXPECT_EQ(code(done), 0) << done->error;
  }
  void hook(const std::string& name, const std::string& script) {
    const auto path = home.file("project/" + name, "#!/bin/sh\n" + script);
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
  }
  /// Title and text of the tool entries.
  Words toolsOf(const std::string& id) {
    Words all;
    const auto shown = objects({"show", id});
    for (const auto& each : *json::array(shown.at(0), "entries")) {
      const JsonObject& entry = *each.asObject();
      if (json::textOr(entry, "kind", "") != "tool") continue;
      all.push_back(json::textOr(entry, "title", "") + ": " + json::textOr(entry, "text", ""));
    }
    return all;
  }
};

TEST_F(ProjectCommands, TheGitPictureIsShown) {
  const auto none = does({"diff"});
  EXPECT_EQ(code(none), 1);
  EXPECT_THAT(none->error, HasSubstr("is not in a Git repository"));

  git({"init", "--quiet", "--initial-branch=main"});
  home.file("project/file", "1\n2\n");
  git({"add", "--all"});
  git({"commit", "--quiet", "-m", "A commit"});
  EXPECT_EQ(does({"diff"})->output, "main in ~/project: nothing has changed\n");
  home.file("project/file", "1\n\x1b[31m3\n");
  home.file("project/new", "1\n");
  const auto shown = does({"diff"});
  EXPECT_EQ(code(shown), 0);
  EXPECT_THAT(shown->output, HasSubstr("main in ~/project: 2 files changed, +1 -1\n"
                                       "   M file  +1 -1\n"
                                       "  ?? new\n\n"
                                       "WORKING CHANGES\n\ndiff --git a/file b/file\n"));
  EXPECT_THAT(shown->output, HasSubstr("\n 1\n-2\n+␛[31m3\n"));
  EXPECT_THAT(does({"diff", "--stat"})->output, Not(HasSubstr("WORKING")));

  const auto id = threadOf(runPractice({"--json", "SAY:hello"}));
  const auto picture = objects({"diff", id});
  ASSERT_EQ(picture.size(), 1U);
  EXPECT_EQ(json::textOr(picture[0], "path", ""), project);
  EXPECT_EQ(json::array(picture[0], "files")->size(), 2U);
  ASSERT_EQ(json::array(picture[0], "hunks")->size(), 1U);
  EXPECT_EQ(json::textOr(*(*json::array(picture[0], "hunks"))[0].asObject(), "header", ""),
            "@@ -1,2 +1,2 @@");
  EXPECT_EQ(does({"diff", "--project", "project", "--stat"})->output,
            "main in ~/project: 2 files changed, +1 -1\n   M file  +1 -1\n  ?? new\n");
}

TEST_F(ProjectCommands, NotesAreWrittenAndListed) {
  const auto id = threadOf(runPractice({"--json", "SAY:hello"}));
  EXPECT_THAT(does({"review", id})->output, HasSubstr("No notes yet."));
  for (const auto& wrong : std::vector<Words>{{"a.cpp"},
                                              {"a.cpp", " "},
                                              {"a.cpp", "note", "--line", "0"},
                                              {"a.cpp", "note", "--decision", "maybe"},
                                              {"--line", "3"}}) {
    Words words = {"review", id};
    words.insert(words.end(), wrong.begin(), wrong.end());
    EXPECT_EQ(code(does(words)), 2) << wrong.back();
  }
  EXPECT_EQ(
      code(does({"review", id, "a.cpp", "leaks\nhere", "--line", "12", "--decision", "rejected"})),
      0);
  EXPECT_EQ(code(does({"review", id, "b.cpp", "fine"})), 0);
  EXPECT_EQ(does({"review", id})->output,
            "a.cpp:12  rejected  just now\n  leaks\n  here\nb.cpp  pending  just now\n  fine\n");
  const auto notes = objects({"review", id});
  ASSERT_EQ(notes.size(), 2U);
  EXPECT_EQ(json::integer(notes[0], "line"), 12);
  EXPECT_EQ(json::textOr(notes[1], "threadID", ""), id);
}

TEST_F(ProjectCommands, HooksRunAroundATaskAndByHand) {
  const auto id = threadOf(runPractice({"--json", "SAY:one"}));
  hook("before", "echo \"$VANTRELL_HOOK_EVENT in $VANTRELL_WORKSPACE\"; exit 3");
  hook("after", "sed -n 1p file");
  home.file("project/file", "what the project holds\n");
  for (const auto& [event, path] : std::vector<std::pair<std::string, std::string>>{
           {"beforeTask", "before"}, {"afterTask", "after"}, {"taskFailed", "after"}}) {
    EXPECT_EQ(code(does({"hooks", "add", event, path})), 0);
  }
  EXPECT_EQ(code(does({"hooks", "add", "afterTask", "/bin/true"})), 1);
  EXPECT_EQ(code(does({"hooks", "add", "afterwards", "after"})), 2);
  EXPECT_THAT(does({"hooks", "add", "afterTask", "later"})->error,
              HasSubstr("later is not an executable file yet"));
  const auto hooks = objects({"hooks"});
  ASSERT_EQ(hooks.size(), 4U);
  EXPECT_THAT(does({"hooks"})->output, HasSubstr("beforeTask  before   ready"));
  EXPECT_EQ(code(does({"hooks", "remove", "later"})), 0);

  const auto done = runPractice({"--task", id, "SAY:two"});
  EXPECT_EQ(code(done), 0);
  EXPECT_THAT(done->output, HasSubstr("✓ Hook · after\n    what the project holds\n"));
  EXPECT_THAT(toolsOf(id),
              ElementsAre("Hook · before: Hook exited with status 3.\nbeforeTask in " + project,
                          "Hook · after: what the project holds"));
  const auto failed = runPractice({"FAIL:it broke"});
  EXPECT_THAT(failed->output,
              HasSubstr("✓ Hook · after\n    what the project holds\n\n✗ it broke"));

  const auto tried = does({"hooks", "run", "before"});
  EXPECT_EQ(code(tried), 1);
  EXPECT_EQ(tried->output, "Hook exited with status 3.\nbeforeTask in " + project + "\n");
  EXPECT_EQ(
      does({"hooks", "run", json::textOr(hooks[1], "id", "").substr(0, 8), "--task", id})->output,
      "what the project holds\n");
  EXPECT_EQ(code(does({"hooks", "run", "after"})), 2) << "two hooks run that file";
  EXPECT_EQ(toolsOf(id).size(), 2U) << "no task hears of it";
}

}  // namespace
}  // namespace vantrell::tests
