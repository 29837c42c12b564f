#include <fstream>
#include <gmock/gmock.h>
#include <sstream>

#include "platform/process_fixture.h"

namespace vantrell::tests {
namespace {

/// Leaves a process behind that has left the group and the session, and prints its id.
const std::string daemon =
    "setsid --fork sh -c 'trap \"\" HUP TERM; echo $$; exec sleep 1000' <&-; ";

class ProcessSupervisor : public ProcessTest {
 protected:
  /// Starts a program that starts the scripts through Process.
  static ProcessOptions maker(std::vector<std::string> scripts) {
    return {
        .executable = std::filesystem::canonical("/proc/self/exe").parent_path() / "orphan_maker",
        .arguments = std::move(scripts),
        .environment = currentEnvironment()};
  }

  /// The first `count` numbers in the output.
  std::vector<pid_t> idsIn(const Record& record, std::size_t count) {
    std::vector<pid_t> ids;
    EXPECT_TRUE(main_.runUntil([&] {
      ids.clear();
      std::istringstream stream(record.output.substr(0, record.output.rfind('\n') + 1));
      for (pid_t id = 0; stream >> id;) ids.push_back(id);
      return ids.size() >= count;
    })) << record.output;
    return ids;
  }

  /// The fourth field of /proc/ID/stat.
  static pid_t parentOf(pid_t id) {
    std::ifstream status("/proc/" + std::to_string(id) + "/stat");
    std::string skipped;
    pid_t parent = 0;
    status >> skipped >> skipped >> skipped >> parent;
    return parent;
  }

  static bool waitForEnds(const std::vector<pid_t>& ids) {
    return std::ranges::all_of(ids, [](pid_t id) { return waitForEnd(id); });
  }
};

TEST_F(ProcessSupervisor, EndsWhatLeftTheGroupInEveryEndingOfTheChild) {
  struct Case {
    const char* what;
    const char* end;  // of the script
    std::function<void(Process&)> act;
  };
  const Case cases[] = {
      {"exit", "exit 0", [](Process&) {}},
      {"kill -9", "kill -9 $$", [](Process&) {}},
      {"terminate", "", [](Process& process) { process.terminate(20s); }},
      {"terminate at once", "", [](Process& process) { process.terminate(0ms); }},
      {"stop", "", [](Process& process) { process.stop(20s); }},
      {"stop at once", "", [](Process& process) { process.stop(0ms); }},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.what);
    const auto record = start(shell(daemon + "echo $$; read -r go; " + each.end));
    const auto ids = idsIn(*record, 2);
    each.act(*record->process);
    record->process->write("\n");
    EXPECT_TRUE(waitForEnds(ids));
    EXPECT_TRUE(Process::waitForAll(20s));
  }
}

TEST_F(ProcessSupervisor, EndsWhatIsLeftWhenTheGroupMayOutliveItsLeader) {
  auto options = shell(daemon + "sleep 1000 & echo $!; read -r go");
  options.endGroupWithLeader = false;
  const auto record = start(options);
  const auto ids = idsIn(*record, 2);
  record->process->closeInput();
  finish(record);
  EXPECT_FALSE(waitForEnd(ids.front(), 0ms));
  EXPECT_FALSE(waitForEnd(ids.back(), 0ms));
  record->process->stop(1ms);
  EXPECT_TRUE(waitForEnds(ids));
}

TEST_F(ProcessSupervisor, EndsEverythingWhenTheProgramIsKilled) {
  for (const int signal : {SIGKILL, SIGTERM, SIGHUP}) {
    SCOPED_TRACE(signal);
    const auto record = start(maker({
        "echo $$; sleep 1000 & echo $!; wait",
        // These ignore the request, so only the second signal ends them.
        "trap '' TERM; echo $$; sleep 1000 & echo $!; wait",
        daemon + "sleep 1000",
    }));
    auto ids = idsIn(*record, 5);
    ids.push_back(parentOf(ids.front()));
    ASSERT_NE(ids.back(), record->process->processID()) << "a supervisor stands between";
    ::kill(static_cast<pid_t>(record->process->processID()), signal);
    finish(record);
    EXPECT_TRUE(waitForEnds(ids));
  }
}

TEST_F(ProcessSupervisor, ChildEndsWithAKilledSupervisor) {
  const auto record = start(shell("echo $$; exec sleep 1000"));
  const pid_t child = idsIn(*record, 1).front();
  ::kill(parentOf(child), SIGKILL);
  finish(record);
  EXPECT_EQ(record->exits.front().signal, SIGKILL);
  EXPECT_TRUE(waitForEnd(child));
}

TEST_F(ProcessSupervisor, LeavesAloneWhatMayDetachAndDoesNotWaitForIt) {
  auto options = shell("setsid --fork sh -c 'echo $$; exec sleep 1000'; read -r line");
  options.mayDetach = true;
  const auto record = start(options);
  const pid_t program = idsIn(*record, 1).front();
  record->process->closeInput();
  finish(record);
  EXPECT_TRUE(Process::waitForAll(20s));
  EXPECT_FALSE(waitForEnd(program, 0ms)) << "with the pipes of the child still open";
  ::kill(program, SIGKILL);
}

TEST_F(ProcessSupervisor, HoldsNothingOfTheProgramAndDoesNotShowItsName) {
  const auto record = start(shell("echo $$; exec sleep 1000"));
  const auto folder = "/proc/" + std::to_string(parentOf(idsIn(*record, 1).front()));
  std::ifstream file(folder + "/cmdline");
  const std::string commandLine{std::istreambuf_iterator<char>(file), {}};
  EXPECT_STREQ(commandLine.c_str(), "child-supervisor");
  EXPECT_EQ(commandLine.find_last_not_of('\0'), std::string("child-supervisor").size() - 1);
  EXPECT_EQ(entries(folder + "/fd"), 1U) << "the socket to the program";
  EXPECT_EQ(std::filesystem::read_symlink(folder + "/cwd"), "/");
  record->process->stop();
}

TEST_F(ProcessSupervisor, ReaderOfTheProgramsOutputSeesItsEndAtOnce) {
  // cat ends only when no process holds the writing end of its input any more.
  auto options = shell("\"$0\" 'trap \"\" TERM; echo $$; exec sleep 1000' | cat; echo end");
  options.arguments.push_back(maker({}).executable);
  const auto record = start(options);
  const pid_t child = idsIn(*record, 1).front();
  ::kill(parentOf(parentOf(child)), SIGKILL);
  finish(record);
  EXPECT_TRUE(record->output.ends_with("end\n"));
  EXPECT_TRUE(waitForEnd(child));
}

}  // namespace
}  // namespace vantrell::tests
