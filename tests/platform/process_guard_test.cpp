#include <fstream>
#include <gmock/gmock.h>
#include <sstream>
#include <thread>

#include "platform/process_fixture.h"

namespace vantrell::tests {
namespace {

/// Starts the program that starts children, as a child of this test's own making.
class ProcessGuard : public ProcessTest {
 protected:
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

  static std::string commandLine(pid_t id) {
    std::ifstream file("/proc/" + std::to_string(id) + "/cmdline");
    return {std::istreambuf_iterator<char>(file), {}};
  }

  static std::vector<pid_t> childrenOf(pid_t parent) {
    std::vector<pid_t> ids;
    for (const auto& task :
         std::filesystem::directory_iterator("/proc/" + std::to_string(parent) + "/task")) {
      std::ifstream file(task.path() / "children");
      for (pid_t id = 0; file >> id;) ids.push_back(id);
    }
    return ids;
  }

  /// The guard of the given program: its child with a session of its own.
  static pid_t guardOf(pid_t program) {
    for (const pid_t id : childrenOf(program)) {
      if (::getsid(id) == id) return id;
    }
    return 0;
  }

  static bool waitForEnds(const std::vector<pid_t>& ids) {
    return std::ranges::all_of(ids, [](pid_t id) { return waitForEnd(id); });
  }
};

TEST_F(ProcessGuard, KilledProgramLeavesNoChildAndNoGrandchild) {
  const auto record = start(maker({
      "echo $$; sleep 100 & echo $!; wait",
      // Deaf to the request, the leader and the grandchild: only the second signal ends them.
      "trap '' TERM; echo $$; sleep 100 & echo $!; wait",
  }));
  const auto ids = idsIn(*record, 4);
  const auto program = static_cast<pid_t>(record->process->processID());
  const pid_t guard = guardOf(program);
  ASSERT_GT(guard, 0);
  ::kill(program, SIGKILL);
  finish(record);
  EXPECT_TRUE(waitForEnds(ids));
  EXPECT_TRUE(waitForEnd(guard)) << "the guard ends behind its work";
}

TEST_F(ProcessGuard, KilledGuardIsReplacedByOneThatKnowsTheGroups) {
  const auto record = start(maker({"trap '' TERM; echo $$; sleep 100 & echo $!; wait"}));
  const auto ids = idsIn(*record, 2);
  const auto program = static_cast<pid_t>(record->process->processID());
  const pid_t first = guardOf(program);
  ASSERT_GT(first, 0);
  ::kill(first, SIGKILL);
  EXPECT_TRUE(waitForEnd(first));
  // A guard that lived for less than a second is not replaced at once.
  const auto giveUp = std::chrono::steady_clock::now() + 20s;
  pid_t second = 0;
  while ((second == 0 || second == first) && std::chrono::steady_clock::now() < giveUp) {
    second = guardOf(program);
    std::this_thread::yield();
  }
  ASSERT_NE(second, first);
  ASSERT_GT(second, 0);
  ::kill(program, SIGKILL);
  finish(record);
  EXPECT_TRUE(waitForEnds(ids));
  EXPECT_TRUE(waitForEnd(second));
}

TEST_F(ProcessGuard, HoldsNothingOfTheProgramAndDoesNotShowItsName) {
  const auto record = start(maker({"echo $$; sleep 100"}));
  idsIn(*record, 1);
  const pid_t guard = guardOf(static_cast<pid_t>(record->process->processID()));
  ASSERT_GT(guard, 0);
  EXPECT_THAT(commandLine(guard), testing::Not(testing::HasSubstr("vantrell")));
  const auto folder = "/proc/" + std::to_string(guard);
  std::map<std::string, std::string> open;
  for (const auto& entry : std::filesystem::directory_iterator(folder + "/fd")) {
    open[entry.path().filename()] = std::filesystem::read_symlink(entry.path());
  }
  EXPECT_THAT(open, testing::UnorderedElementsAre(testing::Pair("0", testing::StartsWith("pipe:")),
                                                  testing::Pair("1", "/dev/null"),
                                                  testing::Pair("2", "/dev/null")));
  EXPECT_EQ(std::filesystem::read_symlink(folder + "/cwd"), "/");
  record->process->stop();
}

TEST_F(ProcessGuard, ReaderOfTheProgramsOutputSeesItsEndAtOnce) {
  // cat ends only when nobody holds the writing end of its input any more.
  auto options = shell("\"$0\" 'trap \"\" TERM; echo $$; exec sleep 100' | cat; echo end");
  options.arguments.push_back(maker({}).executable);
  const auto record = start(options);
  const pid_t child = idsIn(*record, 1).front();
  std::ifstream status("/proc/" + std::to_string(child) + "/stat");
  std::string skipped;
  pid_t program = 0;
  status >> skipped >> skipped >> skipped >> program;
  ::kill(program, SIGKILL);
  finish(record);
  EXPECT_TRUE(record->output.ends_with("end\n"));
  EXPECT_TRUE(waitForEnd(child));
}

}  // namespace
}  // namespace vantrell::tests
