// A program that starts children through Process and then waits to be killed. The tests kill it in
// the hardest way and look whether anything of it survives.
//
// Prints, for each script in its arguments, the id of the child. The children's own output follows.
#include <cstdio>
#include <unistd.h>
#include <vector>

#include "platform/process/process.h"

using namespace vantrell;

int main(int count, char** arguments) {
  BackgroundPool pool(1);
  const SerialQueue queue(pool, "children");
  std::vector<std::shared_ptr<Process>> children;
  for (int index = 1; index < count; ++index) {
    ProcessOptions options{.executable = "/bin/sh",
                           .arguments = {"-c", arguments[index]},
                           .environment = {{"PATH", "/usr/bin:/bin"}}};
    auto child = Process::start(std::move(options), queue, {.onOutput = [](std::string_view bytes) {
                                  std::fwrite(bytes.data(), 1, bytes.size(), stdout);
                                  std::fflush(stdout);
                                }});
    if (!child) return 1;
    children.push_back(std::move(*child));
  }
  for (;;) ::pause();
}
