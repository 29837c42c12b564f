// What a start through Process costs (own group, death signal, guard, reactor, queue) against the
// least that any program pays for a child: posix_spawn, a pipe and a read.
#include <fcntl.h>
#include <future>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/process/process.h"
#include "ratio.h"

using namespace vantrell;

namespace {

bench::Clock::duration startBare() {
  char name[] = "/bin/echo";
  char word[] = "hello";
  char* const arguments[] = {name, word, nullptr};
  char* const environment[] = {nullptr};
  pid_t id = 0;
  int output[2];
  const auto time = bench::timed([&] {
    if (::pipe2(output, O_CLOEXEC) != 0) std::abort();
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    if (::posix_spawn(&id, name, &actions, nullptr, arguments, environment) != 0) std::abort();
    ::close(output[1]);
    char line[64];
    if (::read(output[0], line, sizeof line) != 6) std::abort();
    ::posix_spawn_file_actions_destroy(&actions);
  });
  ::close(output[0]);
  ::waitpid(id, nullptr, 0);
  return time;
}

bench::Clock::duration startWithProcess(const SerialQueue& queue) {
  auto line = std::make_shared<std::promise<void>>();
  std::shared_ptr<Process> process;
  const auto time = bench::timed([&] {
    auto started = Process::start({.executable = "/bin/echo", .arguments = {"hello"}}, queue,
                                  {.onOutput = [line](std::string_view) { line->set_value(); }});
    if (!started) std::abort();
    process = std::move(*started);
    line->get_future().wait();
  });
  process.reset();
  Process::waitForAll(std::chrono::seconds(10));
  return time;
}

}  // namespace

int main() {
  BackgroundPool pool(2);
  const SerialQueue queue(pool, "bench");
  const auto found = bench::compare(1000, [&] { return startWithProcess(queue); }, startBare);
  // The best of many: two processes have to get their turn, and a busy machine makes them wait.
  return bench::report({"process start to first line", "a bare posix_spawn", 1.5},
                       found.bestRatio());
}
