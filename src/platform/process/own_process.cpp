#include "platform/process/own_process.h"

#include <csignal>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/resource.h>
#include <unistd.h>

namespace vantrell {

namespace {

/// What one run with an agent, its terminals and the databases needs. When more is needed than
/// allowed later on, that operation fails with the system's words.
constexpr rlim_t neededFiles = 64;

}  // namespace

std::expected<void, std::string> prepareOwnProcess() {
  int lowest = 0;
  do {
    lowest = ::open("/dev/null", O_RDWR);
  } while (lowest >= 0 && lowest <= STDERR_FILENO);
  if (lowest > STDERR_FILENO) ::close(lowest);
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= neededFiles) return {};
  const rlim_t allowed = limit.rlim_cur;
  limit.rlim_cur = neededFiles;
  if (limit.rlim_max >= neededFiles && ::setrlimit(RLIMIT_NOFILE, &limit) == 0) return {};
  return std::unexpected(
      fmt::format("Only {} files may be open at a time, and Vantrell needs {}. Raise the limit "
                  "(ulimit -n {}) and try again.",
                  allowed, neededFiles, neededFiles));
}

std::vector<int> signalsOfUser() {
  std::vector<int> heard;
  for (const int each : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction now{};
    if (::sigaction(each, nullptr, &now) != 0 || now.sa_handler != SIG_IGN) heard.push_back(each);
  }
  return heard;
}

void endBySignal(int number) {
  std::signal(number, SIG_DFL);
  sigset_t it;
  sigemptyset(&it);
  sigaddset(&it, number);
  ::pthread_sigmask(SIG_UNBLOCK, &it, nullptr);
  ::raise(number);
  ::_exit(128 + number);  // one that ends nothing
}

}  // namespace vantrell
