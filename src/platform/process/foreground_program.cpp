#include "platform/process/foreground_program.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <sys/wait.h>

#include "platform/process/process_spawn.h"

namespace vantrell {

namespace {

/// Read by the handler, which may run on any thread.
std::atomic<pid_t> childInFront = 0;
static_assert(std::atomic<pid_t>::is_always_lock_free);

void passOn(int signal) {
  const int previous = errno;
  if (const pid_t child = childInFront; child > 0) ::kill(child, signal);
  errno = previous;
}

/// What this program does with a signal, until the end of the scope.
class Disposition {
 public:
  Disposition(int signal, void (*handler)(int)) : signal_(signal) {
    struct sigaction action{};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    ::sigaction(signal, &action, &previous_);
  }
  ~Disposition() { ::sigaction(signal_, &previous_, nullptr); }
  Disposition(const Disposition&) = delete;
  Disposition& operator=(const Disposition&) = delete;

 private:
  int signal_;
  struct sigaction previous_{};
};

}  // namespace

std::expected<ExitStatus, ProcessError> runInForeground(const std::string& executable,
                                                        const std::vector<std::string>& arguments,
                                                        const Environment& environment) {
  std::vector<std::string> all{executable};
  all.insert(all.end(), arguments.begin(), arguments.end());
  const ProgramWords words(std::move(all), environment);
  // Ignored, as some parents leave it, it would take the child's status away before the wait.
  const Disposition childEnd(SIGCHLD, SIG_DFL);
  const Disposition interrupt(SIGINT, SIG_IGN);
  const Disposition quit(SIGQUIT, SIG_IGN);
  const SpawnAttributes attributes;
  pid_t child = 0;
  const int error = ::posix_spawn(&child, executable.c_str(), nullptr, attributes.get(),
                                  words.arguments(), words.environment());
  if (error != 0) return std::unexpected(processError(ProcessError::Step::execute, error));
  childInFront = child;
  int status = 0;
  {
    const Disposition end(SIGTERM, passOn);
    const Disposition hangUp(SIGHUP, passOn);
    siginfo_t info{};
    while (::waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT) != 0 &&
           errno == EINTR) {
    }
    // Before it is reaped: from then on another process may have the number.
    childInFront = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
  }
  if (WIFSIGNALED(status)) return ExitStatus{.status = 0, .signal = WTERMSIG(status)};
  return ExitStatus{.status = WEXITSTATUS(status), .signal = 0};
}

}  // namespace vantrell
