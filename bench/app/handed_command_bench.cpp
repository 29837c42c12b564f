// What it costs that another process carries a command out: `vantrell tasks`, started alone and
// beside `vantrell serve`, from the start of the process to its end.
#include <array>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "bench_folder.h"
#include "platform/terminal/terminal.h"
#include "ratio.h"

using namespace vantrell;

namespace {

pid_t begin(const std::string& folder, std::vector<std::string> words, int error = -1) {
  const std::string program = terminal::programFolder() + "/vantrell";
  words.insert(words.begin(), program);
  std::vector<char*> arguments;
  for (auto& each : words) arguments.push_back(each.data());
  arguments.push_back(nullptr);
  std::array<std::string, 5> variables{"PATH=/usr/bin:/bin", "HOME=" + folder,
                                       "XDG_DATA_HOME=" + folder + "/data",
                                       "XDG_CONFIG_HOME=" + folder + "/config",
                                       "XDG_RUNTIME_DIR=" + folder};
  std::vector<char*> environment;
  for (auto& each : variables) environment.push_back(each.data());
  environment.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  if (error >= 0) posix_spawn_file_actions_adddup2(&actions, error, STDERR_FILENO);
  pid_t process = 0;
  const int failed = ::posix_spawn(&process, program.c_str(), &actions, nullptr, arguments.data(),
                                   environment.data());
  posix_spawn_file_actions_destroy(&actions);
  if (failed != 0) std::abort();
  return process;
}

int end(pid_t process) {
  int status = 0;
  if (::waitpid(process, &status, 0) != process) std::abort();
  return status;
}

void listTasks(const std::string& folder) {
  if (end(begin(folder, {"tasks"})) != 0) std::abort();
}

}  // namespace

int main() {
  const bench::Folder alone, shared;
  for (const auto* each : {&alone, &shared}) {
    if (end(begin(each->path(), {"new", "A task"})) != 0) std::abort();
  }
  int ready[2];
  if (::pipe(ready) != 0) std::abort();
  const pid_t server = begin(shared.path(), {"serve"}, ready[1]);
  char byte = 0;
  while (::read(ready[0], &byte, 1) == 1 && byte != '\n') {
  }
  const auto found = bench::compare(
      200, [&] { return bench::timed([&] { listTasks(shared.path()); }); },
      [&] { return bench::timed([&] { listTasks(alone.path()); }); });
  ::kill(server, SIGTERM);
  if (end(server) != 0) std::abort();
  return bench::report({"tasks beside serve", "the same command alone", 1.0}, found);
}
