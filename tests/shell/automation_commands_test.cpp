// Automations through the built program: by hand, by a program that serves, and one that is killed.
#include <fmt/format.h>

#include "shell/program_fixture.h"

namespace vantrell::tests {
namespace {

using namespace std::chrono_literals;

class AutomationCommands : public TerminalProgram {
 protected:
  AutomationCommands() {
    EXPECT_EQ(code(does({"settings", "kimi-path",
                         terminal::programFolder() + "/vantrell-practice-agent"})),
              0);
    EXPECT_EQ(code(does({"projects", "add", "."})), 0);
  }
  std::string create(const std::string& name, const std::string& prompt) {
    const auto made =
        objects({"automations", "create", name, prompt, "--every", "hourly", "--provider", "kimi"});
    return made.empty() ? "" : json::textOr(made[0], "id", "");
  }
  std::shared_ptr<Record> serve() {
    auto record = start(vantrell({"serve"}));
    EXPECT_TRUE(main_.runUntil([&] { return record->error.contains("gateway: "); }));
    return record;
  }
  std::string stored() const {
    return TemporaryFolder::contentOf(home / "data/vantrell/Orchestration/automations.json");
  }
  /// As if an hour had passed.
  void makeDue() const {
    std::string text = stored();
    const auto place = text.find("\"nextRunAt\": \"");
    ASSERT_NE(place, std::string::npos) << text;
    text.replace(place + 14, 4, "2001");
    home.file("data/vantrell/Orchestration/automations.json", text);
  }
  /// The tasks that have begun, once there are that many and all of them have ended.
  std::size_t awaitRuns(std::size_t count) {
    std::vector<JsonObject> all;
    for (int look = 0; look < 200; ++look) {
      all = objects({"automations", "log"});
      const auto isOver = [](const JsonObject& task) {
        const auto status = json::textOr(task, "status", "starting");
        return status == "completed" || status == "interrupted";
      };
      if (all.size() >= count && std::ranges::all_of(all, isOver)) {
        break;
      }
    }
    return all.size();
  }
};

TEST_F(AutomationCommands, OneRunsByHandAndIsListedAndLogged) {
  const auto id = create("Nightly\t\x1b[31m", "SAY:from a recipe");
  const struct {
    std::vector<std::string> words;
    int status;
    std::string output, error;
  } cases[] = {
      {{}, 0, "hourly", ""},
      {{"run", id}, 0, "\nfrom a recipe\n", "task "},
      {{"run", id, "--json"}, 0, "\"event\":\"run\"", ""},
      {{"log"}, 0, "completed", ""},
      {{"log", id.substr(0, 8), "--limit", "1"}, 0, "completed", ""},
      {{"disable", id}, 0, "  off  ", ""},
      {{"enable", id}, 0, "hourly", ""},
      {{"run", "ffffffff-"}, 2, "", "There is no automation"},
      {{"create", " ", "prompt"}, 1, "", "needs a name and a prompt"},
      {{"create", "n", "p", "--every", "yearly"}, 2, "", "hourly"},
      {{"create", "n", "p", "--project", "elsewhere"}, 2, "", "elsewhere"},
      {{"create", "n", "p", "--host", "x"}, 2, "", "not the ID of a host"},
      {{"create", "n", "p", "--host", id}, 1, "", "Choose a registered host"},
      {{"remove", id, "--yes"}, 0, "is removed", ""},
      {{}, 0, "No automations", ""},
  };
  for (const auto& each : cases) {
    auto words = each.words;
    words.insert(words.begin(), "automations");
    SCOPED_TRACE(words.back());
    const auto done = does(words);
    EXPECT_EQ(code(done), each.status) << done->output << done->error;
    EXPECT_TRUE(done->output.contains(each.output)) << done->output;
    EXPECT_TRUE(done->error.contains(each.error)) << done->error;
    EXPECT_FALSE(done->output.contains('\x1b'));
  }
  EXPECT_EQ(objects({"automations", "log"}).size(), 2u) << "the tasks stay";
}

TEST_F(AutomationCommands, WhatIsDueIsToldUntilAProgramServes) {
  create("Nightly", "SAY:done");
  EXPECT_FALSE(does({"status"})->error.contains("due"));
  makeDue();
  EXPECT_TRUE(does({"status"})->error.contains("1 automation is due (Nightly)"));
  const auto server = serve();
  EXPECT_EQ(awaitRuns(1), 1u);
  EXPECT_FALSE(does({"status"})->error.contains("due"));
  ::kill(static_cast<pid_t>(server->process->processID()), SIGTERM);
  EXPECT_EQ(code(finish(server)), 0);
  EXPECT_FALSE(stored().contains("2001-")) << "its next time is stored";
  const auto again = serve();
  EXPECT_EQ(awaitRuns(1), 1u) << "and it runs no second time";
  ::kill(static_cast<pid_t>(again->process->processID()), SIGTERM);
  EXPECT_EQ(code(finish(again)), 0);
  expectNothingLeft();
}

TEST_F(AutomationCommands, ADamagedFileIsToldAndKept) {
  home.file("data/vantrell/Orchestration/automations.json", "[{\"id\":\"half");
  EXPECT_TRUE(does({"automations"})->error.contains("automations.json could not be read"));
  const auto made = does({"automations", "create", "n", "p"});
  EXPECT_EQ(code(made), 0);
  EXPECT_TRUE(made->error.contains("It was kept as")) << made->error;
  EXPECT_EQ(objects({"automations"}).size(), 1u);
}

/// At many moments between the time being due and the end of the run.
TEST_F(AutomationCommands, AKilledProgramNeitherLosesARunNorMakesItTwice) {
  create("Nightly", "SAY:done");
  for (std::size_t round = 1; round <= 8; ++round) {
    makeDue();
    const auto server = start(vantrell({"serve"}));
    const auto begin = std::chrono::steady_clock::now();
    const auto moment = std::chrono::milliseconds(10 * round);
    main_.runUntil([&] { return std::chrono::steady_clock::now() - begin >= moment; }, moment);
    ::kill(static_cast<pid_t>(server->process->processID()), SIGKILL);
    finish(server);
    const auto next = serve();
    const std::size_t runs = awaitRuns(round);
    std::size_t prompts = 0;
    for (const auto& task : objects({"automations", "log"})) {
      const auto shown = does({"show", json::textOr(task, "threadID", "")})->output;
      if (shown.contains("SAY:done")) ++prompts;
    }
    EXPECT_EQ(runs, round) << "killed after " << moment.count() << " ms";
    EXPECT_EQ(prompts, round);
    ::kill(static_cast<pid_t>(next->process->processID()), SIGTERM);
    EXPECT_EQ(code(finish(next)), 0);
  }
  expectNothingLeft();
}

}  // namespace
}  // namespace vantrell::tests
