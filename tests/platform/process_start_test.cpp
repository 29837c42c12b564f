#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <thread>

#include "platform/process_fixture.h"
#include "support/temporary_folder.h"

namespace vantrell::tests {
namespace {

using ProcessStart = ProcessTest;

TEST_F(ProcessStart, GivesExactlyTheEnvironment) {
  const auto record = run({.executable = "/usr/bin/env",
                           .environment = {{"A", "1 = 2"}, {"EMPTY", ""}, {"LINES", "x\ny"}}});
  EXPECT_EQ(record->output, "A=1 = 2\nEMPTY=\nLINES=x\ny\n");
}

TEST_F(ProcessStart, GivesASessionOfItsOwnWhenAsked) {
  for (const bool isAsked : {false, true}) {
    // The sixth field is the session.
    auto options = shell("read -r a b c d e session rest < /proc/$$/stat; [ $session = $$ ]");
    options.ownSession = isAsked;
    EXPECT_EQ(run(std::move(options))->exits.at(0).code(), isAsked ? 0 : 1);
  }
}

TEST_F(ProcessStart, PassesArgumentsUntouched) {
  auto options = shell(R"(for a in "$@"; do printf '<%s>' "$a"; done)");
  options.arguments.insert(options.arguments.end(), {"sh", "", "a b", "'\"$HOME", "*", "\n"});
  EXPECT_EQ(run(std::move(options))->output, "<><a b><'\"$HOME><*><\n>");
}

TEST_F(ProcessStart, InheritsNoDescriptor) {
  std::vector<Descriptor> open;
  for (int count = 0; count < 20; ++count) {
    open.emplace_back(::open("/dev/null", O_RDONLY));  // without close-on-exec
  }
  const Descriptor high(::fcntl(open.front().get(), F_DUPFD, 700));
  const auto record = run(shell("cd /proc/$$/fd && for f in *; do [ -e $f ] && echo $f; done"));
  EXPECT_EQ(record->output, "0\n1\n2\n");
}

TEST_F(ProcessStart, GivesSignalsTheirDefaultsAndUnblocksThem) {
  ::signal(SIGPIPE, SIG_IGN);
  ::signal(SIGUSR1, SIG_IGN);
  sigset_t blocked;
  sigset_t before;
  ::sigemptyset(&blocked);
  ::sigaddset(&blocked, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &blocked, &before);
  const auto record = run({.executable = "/bin/cat", .arguments = {"/proc/self/status"}});
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  ::signal(SIGPIPE, SIG_DFL);
  ::signal(SIGUSR1, SIG_DFL);
  for (const auto* set : {"SigBlk", "SigIgn", "SigCgt"}) {
    EXPECT_THAT(record->output, testing::HasSubstr(std::string(set) + ":\t0000000000000000\n"));
  }
}

TEST_F(ProcessStart, SaysWhatFailed) {
  using Step = ProcessError::Step;
  const TemporaryFolder folder;
  const auto text = folder.file("plain.txt", "text");
  const auto broken = folder.file("broken", "no program");
  ::chmod(broken.c_str(), 0755);
  struct Case {
    const char* what;
    ProcessOptions options;
    Step step;
    int error;
    const char* description;
  };
  const Case cases[] = {
      {"missing", {.executable = "/missing"}, Step::execute, ENOENT, "No such file or directory"},
      {"folder", {.executable = "/bin"}, Step::execute, EACCES, "Permission denied"},
      {"no executable", {.executable = text}, Step::execute, EACCES, "Permission denied"},
      {"no program", {.executable = broken}, Step::execute, ENOEXEC, "Exec format error"},
      {"relative", {.executable = "sh"}, Step::execute, ENOENT, "No such file or directory"},
      {"missing folder",
       {.executable = "/bin/sh", .workingFolder = "/missing"},
       Step::enterFolder,
       ENOENT,
       "No such file or directory"},
      {"file as folder",
       {.executable = "/bin/sh", .workingFolder = text},
       Step::enterFolder,
       ENOTDIR,
       "Not a directory"},
      {"hidden end of an argument",
       {.executable = "/bin/sh", .arguments = {std::string("a\0b", 3)}},
       Step::prepare,
       EINVAL,
       "Invalid argument"},
      {"huge argument",
       {.executable = "/bin/sh", .arguments = {std::string(8 << 20, 'x')}},
       Step::execute,
       E2BIG,
       "Argument list too long"},
  };
  run(shell("exit 0"));  // the children's thread has its descriptors now
  EXPECT_TRUE(Process::waitForAll(20s));
  const auto descriptors = entries("/proc/self/fd");
  for (const auto& each : cases) {
    SCOPED_TRACE(each.what);
    const auto started = Process::start(each.options, queue_, {});
    ASSERT_FALSE(started);
    EXPECT_EQ(started.error().step, each.step);
    EXPECT_EQ(started.error().error, each.error);
    EXPECT_EQ(started.error().description, each.description);
  }
  EXPECT_TRUE(Process::waitForAll(0ms));
  EXPECT_EQ(entries("/proc/self/fd"), descriptors);
}

TEST_F(ProcessStart, WorksWhenThisProgramHasNoStandardDescriptors) {
  const Descriptor saved(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 10));
  if (saved) ::close(STDIN_FILENO);
  const auto record = start({.executable = "/bin/cat"});
  record->process->write("through");
  record->process->closeInput();
  finish(record);
  if (saved) ::dup2(saved.get(), STDIN_FILENO);
  EXPECT_EQ(record->output, "through");
}

TEST_F(ProcessStart, UsesTheNullDeviceWhereAsked) {
  auto options = shell("cat; echo out; echo err >&2; readlink /proc/self/fd/0 /proc/self/fd/2 >&2");
  options.standardInput = ProcessOptions::Input::null;
  options.standardOutput = ProcessOptions::Output::null;
  const auto record = run(std::move(options));
  EXPECT_EQ(record->output, "");
  EXPECT_THAT(record->error, testing::StartsWith("err\n/dev/null\npipe:"));
}

}  // namespace
}  // namespace vantrell::tests
