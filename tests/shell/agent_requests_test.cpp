// What an agent asks of its host, through the whole program: decisions, files and commands. Each
// question comes to one end: it is answered, withdrawn, or gone with its agent.
#include <csignal>
#include <sys/stat.h>

#include "program_fixture.h"

namespace vantrell::tests {
namespace {

class AgentRequests : public TerminalProgram {
 protected:
  /// A run that waits for the answer to its question, with nobody to give it.
  std::shared_ptr<Record> startAsking(const std::string& prompt) {
    auto options = practice({"--json", prompt});
    options.standardInput = ProcessOptions::Input::pipe;
    auto record = start(std::move(options));
    awaitOutput(*record, "\"permission\"");
    return record;
  }
  static std::string lastStatus(const std::shared_ptr<Record>& record) {
    std::string status;
    for (const auto& event : events(record)) {
      if (const auto* run = json::object(event, "run")) status = json::textOr(*run, "status", "?");
    }
    return status;
  }
};

TEST_F(AgentRequests, FilesInsideTheProjectAreWrittenAndOthersRefused) {
  struct Case {
    std::string prompt;
    std::string answer;
    std::string said;
    std::string written;  // below the project, if anything is
  };
  const std::vector<Case> cases = {
      {"WRITE:notes/a.txt=hello", "allow_once", "", "notes/a.txt"},
      {"WRITE:b.txt=hello", "reject_once", "", ""},
      {"WRITE:../c.txt=hello", "allow_once",
       "vantrell only allows file writes inside the selected project.", ""},
      {"WRITE:" + home.path() + "/project-too/d.txt=hello", "allow_once",
       "vantrell only allows file writes inside the selected project.", ""},
      {"READ:/etc/hostname", "allow_once",
       "vantrell only allows file reads inside the selected project.", ""},
  };
  for (const auto& each : cases) {
    const auto done = runPractice({"--answer", each.answer, each.prompt});
    EXPECT_EQ(code(done), 0) << each.prompt;
    EXPECT_TRUE(done->output.contains(each.said)) << done->output;
    if (!each.written.empty()) {
      EXPECT_EQ(TemporaryFolder::contentOf(project + "/" + each.written), "hello");
    }
  }
  EXPECT_FALSE(files::exists(project + "/b.txt"));
  EXPECT_FALSE(files::exists(home / "c.txt"));
  EXPECT_FALSE(files::exists(home / "project-too"));
}

TEST_F(AgentRequests, OutputOfACommandIsCompleteAndInOrder) {
  const auto done = runPractice(
      {"--answer", "allow_once", "RUN:seq 1 5000 | tail -n 2; echo error >&2; echo last; exit 3"});
  EXPECT_EQ(code(done), 0);
  EXPECT_TRUE(done->output.contains("status 3")) << done->output;
  EXPECT_TRUE(done->output.contains("4999\n5000\nerror\nlast\n")) << done->output;
}

TEST_F(AgentRequests, StopWithdrawsTheQuestion) {
  const auto record = startAsking("WRITE:a.txt=a");
  ::kill(static_cast<pid_t>(record->process->processID()), SIGINT);
  EXPECT_EQ(code(finish(record)), 130);
  EXPECT_EQ(lastStatus(record), "cancelled");
  EXPECT_FALSE(files::exists(project + "/a.txt"));
  expectNothingLeft();
}

TEST_F(AgentRequests, QuestionIsGoneWithItsAgent) {
  const auto record = startAsking("WRITE:a.txt=a");
  for (const pid_t id : processesOf("vantrell-practice-agent")) ::kill(id, SIGKILL);
  EXPECT_EQ(code(finish(record)), 1);
  EXPECT_EQ(lastStatus(record), "failed");
  EXPECT_FALSE(files::exists(project + "/a.txt"));
  expectNothingLeft();
}

TEST_F(AgentRequests, StopEndsACommandThatRuns) {
  const std::string pipe = project + "/begun";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  const auto record =
      start(practice({"--json", "--answer", "allow_once", "RUN:echo begun > begun; sleep 1000"}));
  awaitOutput(*record, "in_progress");
  std::string line;
  std::ifstream(pipe) >> line;  // waits for the command
  EXPECT_EQ(line, "begun");
  ::kill(static_cast<pid_t>(record->process->processID()), SIGINT);
  EXPECT_EQ(code(finish(record)), 130);
  EXPECT_EQ(lastStatus(record), "cancelled");
  expectNothingLeft();
}

}  // namespace
}  // namespace vantrell::tests
