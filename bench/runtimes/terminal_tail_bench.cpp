// What a terminal's output costs on its way into the tail that is kept, against the least that
// anybody pays who reads it: `cat` into a pipe, and read() from it. The time ends when the command
// has ended and its last byte is in the tail. Memory must not grow with what went through.
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <future>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/files/files.h"
#include "platform/process/process.h"
#include "process_memory.h"
#include "ratio.h"
#include "runtimes/acp/acp_host_services.h"

using namespace vantrell;

namespace {

constexpr std::size_t fileSize = 64u << 20;
constexpr int copies = 16;  // 1 GiB a round
constexpr std::int64_t keptBytes = 1'000'000;

std::string bigFile() {
  const std::string path =
      fmt::format("{}/terminal-tail-bench-{}", files::temporaryFolder(), ::getpid());
  std::string line(79, 'x');
  line += '\n';
  std::ofstream file(path, std::ios::binary);
  for (std::size_t written = 0; written < fileSize; written += line.size()) file << line;
  return path;
}

bench::Clock::duration readBare(const std::string& path) {
  std::string name = "/bin/cat";
  std::string file = path;
  std::vector<char*> arguments = {name.data()};
  for (int i = 0; i < copies; ++i) arguments.push_back(file.data());
  arguments.push_back(nullptr);
  std::string buffer(128 << 10, '\0');
  return bench::timed([&] {
    int output[2];
    pid_t id = 0;
    if (::pipe2(output, O_CLOEXEC) != 0) std::abort();
    ::fcntl(output[0], F_SETPIPE_SZ, 512 << 10);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    if (::posix_spawn(&id, name.c_str(), &actions, nullptr, arguments.data(), environ) != 0) {
      std::abort();
    }
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(output[1]);
    while (::read(output[0], buffer.data(), buffer.size()) > 0) {
    }
    ::close(output[0]);
    ::waitpid(id, nullptr, 0);
  });
}

class Host {
 public:
  explicit Host(std::string folder)
      : services_(
            std::make_shared<ACPHostServices>(std::move(folder), currentEnvironment(), queue_)) {}
  ~Host() {
    queue_.post([services = services_] { services->releaseAll(); });
  }

  JsonObject request(std::string method, JsonObject params) {
    std::promise<JsonObject> answered;
    queue_.post([&, services = services_] {
      services->handle(method, params, [&](ACPHostServices::Answer answer) {
        if (!answer) std::abort();
        answered.set_value(*std::move(answer));
      });
    });
    return answered.get_future().get();
  }

 private:
  BackgroundPool pool_{2};
  SerialQueue queue_{pool_, "bench"};
  std::shared_ptr<ACPHostServices> services_;
};

bench::Clock::duration readWithTerminal(Host& host, const std::string& path, int times = copies) {
  Json::Array arguments(static_cast<std::size_t>(times), Json(path));
  return bench::timed([&] {
    const JsonObject created = host.request(
        "terminal/create",
        {{"command", "cat"}, {"args", std::move(arguments)}, {"outputByteLimit", keptBytes}});
    const JsonObject terminal{{"terminalId", *json::text(created, "terminalId")}};
    host.request("terminal/wait_for_exit", terminal);
    const JsonObject output = host.request("terminal/output", terminal);
    if (json::text(output, "output")->size() != static_cast<std::size_t>(keptBytes)) std::abort();
    host.request("terminal/release", terminal);
  });
}

}  // namespace

int main() {
  const std::string path = bigFile();
  int status = EXIT_SUCCESS;
  {
    Host host(files::temporaryFolder());
    // 64 MiB fill the buffers and the tail; several times, so that each thread's allocator has had
    // its share.
    for (int round = 0; round < 8; ++round) readWithTerminal(host, path, 1);
    const double before = bench::memory("VmHWM");
    const auto found = bench::compareUntilSteady(
        5, 20, [&] { return readWithTerminal(host, path); }, [&] { return readBare(path); });
    status |= bench::report({"1 GiB of a terminal's output into its tail", "cat into a pipe", 2.0},
                            found.bestRatio());
    status |= bench::report({"growth of memory from 64 MiB on", "the tail that is kept", 2.0},
                            (bench::memory("VmHWM") - before) / static_cast<double>(keptBytes));
  }
  std::filesystem::remove(path);
  return status;
}
