#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>

#include "platform/process_fixture.h"
#include "support/temporary_folder.h"

namespace vantrell::tests {
namespace {

using ProcessEnd = ProcessTest;

Descriptor makePipe(const std::string& path) {
  EXPECT_EQ(::mkfifo(path.c_str(), 0600), 0);
  return Descriptor(::open(path.c_str(), O_RDWR | O_CLOEXEC));
}
bool hasByte(const Descriptor& pipe, std::chrono::milliseconds limit) {
  pollfd wait{pipe.get(), POLLIN, 0};
  return ::poll(&wait, 1, static_cast<int>(limit.count())) == 1;
}

TEST_F(ProcessEnd, TellsStatusAndSignalApartAndOnce) {
  struct Case {
    const char* script;
    int status, signal, code;
  };
  for (const auto& each :
       {Case{"exit 0", 0, 0, 0}, Case{"exit 3", 3, 0, 3}, Case{"exit 255", 255, 0, 255},
        Case{"kill -9 $$", 0, 9, 137}, Case{"kill -15 $$", 0, 15, 143}}) {
    SCOPED_TRACE(each.script);
    const auto record = run(shell(each.script));
    EXPECT_EQ(record->exits.front().status, each.status);
    EXPECT_EQ(record->exits.front().signal, each.signal);
    EXPECT_EQ(record->exits.front().code(), each.code);
    EXPECT_FALSE(record->process->isRunning());
    record->process->terminate();
    record->process->write("to nobody");
    EXPECT_TRUE(Process::waitForAll(20s));
    main_.runReady();
    EXPECT_EQ(record->exits.size(), 1U);
    EXPECT_TRUE(record->writeErrors.empty());
  }
}

/// A shell that leaves another one behind, which says "early" and waits for a line in the pipe
/// "go" of the folder.
class ProcessLeftBehind : public ProcessTest {
 protected:
  ProcessLeftBehind() { EXPECT_EQ(::mkfifo((folder_ / "go").c_str(), 0600), 0); }
  ProcessOptions leaving(const std::string& script) const {
    auto options = shell("(read x < go; " + script + ") & echo early");
    options.workingFolder = folder_.path();
    options.endGroupWithLeader = false;
    return options;
  }
  void go() const {
    const Descriptor pipe(::open((folder_ / "go").c_str(), O_RDWR | O_CLOEXEC));
    EXPECT_EQ(::write(pipe.get(), "\n", 1), 1);
    // Kept open until it was read.
    while (hasByte(pipe, 0ms)) std::this_thread::yield();
  }
  TemporaryFolder folder_;
};

TEST_F(ProcessLeftBehind, IsReadToItsEndAfterTheExit) {
  auto held = std::make_shared<int>(0);
  auto record = std::make_shared<Record>();
  auto handlers = handlersFor(record);
  handlers.onWriteError = [held](const ProcessError&) {};
  auto started =
      Process::start(leaving("echo late; echo error >&2; seq 200000"), queue_, std::move(handlers));
  ASSERT_TRUE(started);
  finish(record);
  EXPECT_EQ(record->output, "early\n");
  EXPECT_FALSE((*started)->isRunning());
  (*started)->pauseReading();
  (*started)->resumeReading();
  go();
  awaitOutput(*record, "\n200000\n");
  EXPECT_TRUE(record->output.starts_with("early\nlate\n1\n2\n"));
  EXPECT_TRUE(main_.runUntil([&] { return record->error == "error\n"; }));
  EXPECT_EQ(record->exits.size(), 1U);
  // The end of both its streams is the end of the handlers.
  EXPECT_TRUE(main_.runUntil([&] {
    main_.post([] {});
    return held.use_count() == 1;
  }));
  (*started)->stop();
  EXPECT_TRUE(Process::waitForAll(20s));
}

TEST_F(ProcessLeftBehind, IsHeldBackByAPause) {
  const auto record = finish(start(leaving("seq 200000; echo > done")));
  const Descriptor done = makePipe(folder_ / "done");
  record->process->pauseReading();
  go();
  EXPECT_FALSE(hasByte(done, 20ms)) << "a pipe takes only a part of it";
  record->process->resumeReading();
  EXPECT_TRUE(hasByte(done, 20s));
  awaitOutput(*record, "\n200000\n");
}

TEST_F(ProcessLeftBehind, MayStillWriteWithinTheGraceOfAStop) {
  const auto record =
      finish(start(leaving("trap 'seq 200000; echo x > farewell; exit' TERM; echo up; "
                           "while :; do sleep 0.01; done")));
  go();
  awaitOutput(*record, "up");
  record->process->stop(20s);
  EXPECT_TRUE(Process::waitForAll(20s));
  EXPECT_TRUE(folder_.names().contains("farewell"));
  main_.runReady();
  EXPECT_EQ(record->output, "early\nup\n");
}

TEST_F(ProcessEnd, PatientStopLetsTheChildEndByItself) {
  const TemporaryFolder folder;
  const std::string last = folder / "last words";
  const auto record = start(shell("trap 'echo interrupted > \"" + last +
                                  "\"; exit' TERM; while read -r line; do "
                                  "words=\"$words$line\"; done; echo \"$words\" > \"" +
                                  last + "\""));
  record->process->write("one\n");
  record->process->write("two\n");
  record->process->stop(20s, 20s);
  EXPECT_TRUE(Process::waitForAll(20s));
  EXPECT_EQ(TemporaryFolder::contentOf(last), "onetwo\n");
}

TEST_F(ProcessEnd, ChildThatIgnoresTheRequestIsKilledAfterTheGrace) {
  const auto record = start(shell("trap '' TERM; sleep 100 & echo $!; wait"));
  const pid_t grandchild = idIn(*record);
  const auto before = std::chrono::steady_clock::now();
  record->process->terminate(50ms);
  finish(record);
  EXPECT_GE(std::chrono::steady_clock::now() - before, 50ms);
  EXPECT_EQ(record->exits.front().signal, SIGKILL);
  EXPECT_TRUE(waitForEnd(grandchild));
}

TEST_F(ProcessEnd, SuspendedChildEndsToo) {
  const auto record = start(shell("echo up; kill -STOP $$; sleep 100"));
  awaitOutput(*record, "up");
  record->process->terminate();
  finish(record);
  EXPECT_EQ(record->exits.front().signal, SIGTERM);
}

TEST_F(ProcessEnd, NoHandlerIsCalledAfterTheStop) {
  const auto record = start(shell("sleep 100 & echo $!; while :; do echo more; done"));
  const pid_t grandchild = idIn(*record);
  queue_.post([&] {
    record->process->stop();
    main_.post([&] { record->order.clear(); });
  });
  awaitQueue();
  EXPECT_TRUE(Process::waitForAll(20s));
  EXPECT_TRUE(waitForEnd(grandchild));
  awaitQueue();
  main_.runReady();
  EXPECT_EQ(record->order, "");
  EXPECT_TRUE(record->exits.empty());
}

TEST_F(ProcessEnd, DestructionEndsTheGroupAtOnceAndReleasesTheHandlers) {
  auto held = std::make_shared<int>(0);
  auto started = Process::start(shell("trap '' TERM; sleep 100 & wait"), queue_,
                                {.onExit = [held](ExitStatus) { ADD_FAILURE(); }});
  ASSERT_TRUE(started);
  const auto id = static_cast<pid_t>((*started)->processID());
  started->reset();
  EXPECT_TRUE(waitForEnd(id));
  EXPECT_TRUE(Process::waitForAll(20s));
  awaitQueue();
  EXPECT_EQ(held.use_count(), 1);
}

TEST_F(ProcessEnd, DestructionAfterAStopKeepsItsGraceAndTheChildMayStillWrite) {
  const TemporaryFolder folder;
  auto options = shell(
      "trap 'sleep 0.1; yes | head -c 1000000; echo bye >&2; echo x > done; exit' TERM;"
      "echo up; while :; do sleep 0.01; done");
  options.workingFolder = folder.path();
  auto record = start(options);
  awaitOutput(*record, "up");
  record->process->pauseReading();
  record->process->stop(20s);
  record->process.reset();
  EXPECT_TRUE(Process::waitForAll(20s));
  EXPECT_EQ(folder.names(), std::set<std::string>{"done"});
}

TEST_F(ProcessEnd, HandlersThatHoldTheirProcessDoNotKeepItForEver) {
  auto process = std::make_shared<std::shared_ptr<Process>>();
  std::weak_ptr<std::shared_ptr<Process>> watched = process;
  bool exited = false;
  auto started = Process::start(
      {.executable = "/bin/true"}, queue_,
      {.onExit = [this, &exited, process](ExitStatus) { main_.post([&] { exited = true; }); }});
  ASSERT_TRUE(started);
  *process = std::move(*started);
  process.reset();
  EXPECT_TRUE(main_.runUntil([&] { return exited; }));
  awaitQueue();
  EXPECT_TRUE(watched.expired());
}

TEST_F(ProcessEnd, AThousandStartsAndStopsLeaveNothing) {
  const auto children = [] {
    std::ifstream file("/proc/self/task/" + std::to_string(::getpid()) + "/children");
    std::string text;
    std::getline(file, text);
    return std::ranges::count(text, ' ');
  };
  run({.executable = "/bin/true"});  // the children's thread is there from here on
  EXPECT_TRUE(Process::waitForAll(20s));
  const auto descriptors = entries("/proc/self/fd");
  const auto threads = entries("/proc/self/task");
  const auto before = children();
  for (int round = 0; round < 1000; ++round) {
    auto process = Process::start({.executable = "/bin/cat"}, queue_, {});
    ASSERT_TRUE(process);
    (*process)->write("x");
    if (round % 2 == 0) (*process)->stop();
  }
  EXPECT_TRUE(Process::waitForAll(20s));
  EXPECT_EQ(entries("/proc/self/fd"), descriptors);
  EXPECT_EQ(entries("/proc/self/task"), threads);
  EXPECT_EQ(children(), before);
}

}  // namespace
}  // namespace vantrell::tests
