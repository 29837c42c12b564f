#include "platform/process/program_runner.h"

#include "platform/process_fixture.h"
#include "support/temporary_folder.h"

namespace vantrell {
namespace {

using namespace std::chrono_literals;
using tests::TemporaryFolder;

class ProgramRunnerTest : public tests::ProcessTest {
 protected:
  static ProgramRunner::Program script(std::string text) {
    return {.options =
                [text = std::move(text)] {
                  ProcessOptions options = shell(text);
                  options.mergeErrorIntoOutput = true;
                  return options;
                },
            .limit = {},
            .input = {}};
  }
  void run(ProgramRunner::Program program) {
    runner_->run(std::move(program), [this](ProgramRunner::Outcome outcome) {
      outcomes_.push_back(std::move(outcome));
    });
  }
  ProgramRunner::Outcome outcomeOf(ProgramRunner::Program program) {
    run(std::move(program));
    EXPECT_TRUE(outcomes_.empty());
    EXPECT_TRUE(main_.runUntil([&] { return !outcomes_.empty(); }));
    return std::exchange(outcomes_, {}).at(0);
  }

  TemporaryFolder folder_;
  std::shared_ptr<ProgramRunner> runner_ = std::make_shared<ProgramRunner>(main_, pool_);
  std::vector<ProgramRunner::Outcome> outcomes_;
};

TEST_F(ProgramRunnerTest, GivesOutputAndErrorInOrderWithTheStatus) {
  const auto outcome = outcomeOf(script("echo one; echo two >&2; echo three; exit 7"));
  EXPECT_EQ(outcome.output, "one\ntwo\nthree\n");
  EXPECT_EQ(outcome.status, 7);
  EXPECT_FALSE(outcome.hasRunOut);
  EXPECT_EQ(outcomeOf(script("kill -9 $$")).status, 128 + 9);
}

TEST_F(ProgramRunnerTest, InputIsEmptyUnlessGiven) {
  EXPECT_EQ(outcomeOf(script("cat; echo end")).output, "end\n");
  auto program = script("cat; echo end");
  program.input = "given ";
  EXPECT_EQ(outcomeOf(std::move(program)).output, "given end\n");
}

TEST_F(ProgramRunnerTest, EndsWhatTakesTooLongAndItsChildren) {
  auto program = script("sleep 1000 & echo $! > '" + (folder_ / "id") + "'; echo begun; wait");
  program.limit = 10s;
  run(std::move(program));
  const pid_t id = awaitIdIn(folder_ / "id");
  main_.advance(9s);
  EXPECT_TRUE(outcomes_.empty());
  main_.advance(1s);
  ASSERT_TRUE(main_.runUntil([&] { return !outcomes_.empty(); }));
  EXPECT_TRUE(outcomes_[0].hasRunOut);
  EXPECT_EQ(outcomes_[0].status, -1);
  EXPECT_TRUE(tests::waitForEnd(id));
  // The end that the program then comes to is no second outcome.
  EXPECT_TRUE(Process::waitForAll(20s));
  awaitQueue();
  main_.runReady();
  EXPECT_EQ(outcomes_.size(), 1U);
}

TEST_F(ProgramRunnerTest, KeepsTheBeginningOfEndlessOutputAndLetsTheProgramFinish) {
  const auto outcome = outcomeOf(script("echo first; head -c 8000000 /dev/zero; exit 3"));
  EXPECT_EQ(outcome.output.size(), ProgramRunner::keptOutput);
  EXPECT_TRUE(outcome.output.starts_with("first\n"));
  EXPECT_EQ(outcome.status, 3);
}

TEST_F(ProgramRunnerTest, ItsEndEndsTheProgramsWithoutAWord) {
  run(script("echo $$ > '" + (folder_ / "id") + "'; exec sleep 1000"));
  const pid_t id = awaitIdIn(folder_ / "id");
  runner_.reset();
  EXPECT_TRUE(tests::waitForEnd(id));
  EXPECT_TRUE(Process::waitForAll(20s));
  main_.runReady();
  EXPECT_TRUE(outcomes_.empty());
}

}  // namespace
}  // namespace vantrell
