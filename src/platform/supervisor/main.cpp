// child-supervisor: stands between Vantrell and one child, so that nothing of the child outlives
// either of them, however they end. It starts the program and is the parent to which the kernel
// gives whatever the program leaves behind, also processes with a group or session of their own. It
// ends them when the program exits, when Vantrell says so, and when Vantrell is gone.
//
// It cannot end what is not descended from the child (started by a service such as systemd, D-Bus
// or Docker), nor what runs as another user. If it is killed itself, the program is killed with it,
// but not what has left the program's group. On a kernel without /proc/PID/task/TID/children only
// the group is ended.
//
// One thread. It starts with every child, so it is linked statically, to the small C library alone.
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "platform/process/supervision.h"

namespace {

using namespace vantrell::supervision;

/// What the child gets to end by itself when Vantrell is gone.
constexpr long graceMilliseconds = 1000;
/// After a kill the rest gets this long, and is then left alone: a process in the kernel or of
/// another user may never end, and Vantrell waits for the report of the exit.
constexpr long patienceMilliseconds = 2000;
/// While killing: a process may have been started after the last walk.
constexpr long walkMilliseconds = 50;
constexpr long never = -1;

long now() {
  timespec time{};
  ::clock_gettime(CLOCK_MONOTONIC, &time);
  return time.tv_sec * 1000 + time.tv_nsec / 1'000'000;
}

/// posix_spawn leaves these two of the C library's own ignored, and programs would inherit that.
void resetLibrarySignals() {
  struct {
    void* handler = nullptr;
    unsigned long flags = 0;
    void* restorer = nullptr;
    unsigned long mask = 0;
  } const action;  // as the kernel takes it
  for (int signal = 32; signal <= 33; ++signal) {
    ::syscall(SYS_rt_sigaction, signal, &action, nullptr, sizeof action.mask);
  }
}

void report(Report::Kind kind, int first, int second) {
  const Report message{kind, first, second};
  ::send(controlDescriptor, &message, sizeof message, MSG_NOSIGNAL);
}

struct Launch {
  pid_t id;
  Step step;
  int error;  // 0: the program runs
};

/// Runs in the memory of the supervisor until the exec, so it makes system calls only.
Launch launch(char** words, bool hasOwnSession, const char* folder) {
  static volatile Step step = Step::prepare;
  static volatile int error = 0;
  const pid_t supervisor = ::getpid();
  const pid_t id = ::vfork();
  if (id != 0) return {id, step, id < 0 ? errno : error};
  bool isReady = (hasOwnSession ? ::setsid() : ::setpgid(0, 0)) >= 0 &&
                 ::prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && ::getppid() == supervisor;
  if (isReady && *folder != '\0') {
    step = Step::enterFolder;
    isReady = ::chdir(folder) == 0;
  }
  if (isReady) {
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    step = Step::execute;
    ::execve(words[0], words, environ);
  }
  error = errno == 0 ? ESRCH : errno;
  ::_exit(127);
}

class Supervisor {
 public:
  Supervisor(pid_t leader, bool endsGroup) : leader_(leader), endsGroup_(endsGroup) {}

  void run() {
    sigset_t duringPoll;
    ::sigfillset(&duringPoll);
    ::sigdelset(&duringPoll, SIGCHLD);
    while (true) {
      const bool isAnyLeft = reap();
      const bool hasGivenUp = killedAt_ != never && now() >= killedAt_ + patienceMilliseconds;
      if (hasExited_ && (!endsGroup_ || !isAnyLeft || hasGivenUp)) reportExit();
      if (!isAnyLeft || hasGivenUp) return;
      if (killAt_ != never && now() >= killAt_) kill();
      if (killedAt_ != never) signalAll(SIGKILL);
      pollfd control{controlIsOpen_ ? controlDescriptor : -1, POLLIN, 0};
      const timespec limit = timeToWait();
      const bool waits = killAt_ != never || killedAt_ != never;
      if (::ppoll(&control, 1, waits ? &limit : nullptr, &duringPoll) > 0) takeCommand();
    }
  }

 private:
  /// Whether any child is left. The leader is still a zombie when its group is killed: its id, and
  /// so the group's, cannot belong to others yet.
  bool reap() {
    while (true) {
      siginfo_t info{};
      if (::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) != 0) return errno != ECHILD;
      if (info.si_pid == 0) return true;
      if (info.si_pid == leader_) {
        hasExited_ = true;
        (info.si_code == CLD_EXITED ? status_ : signal_) = info.si_status;
        if (endsGroup_) {
          ::kill(-leader_, SIGKILL);
          kill();
        }
        leader_ = 0;
      }
      ::waitpid(info.si_pid, nullptr, 0);
    }
  }

  void reportExit() {
    if (!isReported_) report(Report::Kind::exited, status_, signal_);
    isReported_ = true;
  }

  void kill() {
    killAt_ = never;
    if (killedAt_ == never) killedAt_ = now();
  }

  void takeCommand() {
    Command command{};
    const ssize_t length = ::recv(controlDescriptor, &command, sizeof command, MSG_DONTWAIT);
    if (length < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (length <= 0) {
      controlIsOpen_ = false;
      killAt_ = now() + graceMilliseconds;
    } else if (command == Command::kill) {
      return kill();
    }
    signalAll(SIGTERM);
    signalAll(SIGCONT);  // a suspended process could not even end
  }

  timespec timeToWait() const {
    const long wait = killedAt_ != never ? walkMilliseconds : killAt_ - now();
    return {.tv_sec = wait > 0 ? wait / 1000 : 0,
            .tv_nsec = wait > 0 ? wait % 1000 * 1'000'000 : 0};
  }

  /// Signals each child of this process and its group. What is left below a child becomes a child
  /// itself when that one ends.
  void signalAll(int signal) {
    char text[16 * 1024];
    const int file = ::open("/proc/thread-self/children", O_RDONLY | O_CLOEXEC);
    const ssize_t length = file < 0 ? -1 : ::read(file, text, sizeof text - 1);
    if (file >= 0) ::close(file);
    if (length < 0) {
      if (leader_ > 0) ::kill(-leader_, signal);
      return;
    }
    text[length] = '\0';
    pid_t groups[64];  // that have had the signal: of more, some may get it twice
    size_t count = 0;
    char* rest = text;
    while (const auto id = static_cast<pid_t>(::strtol(rest, &rest, 10))) {
      const pid_t group = ::getpgid(id);
      // The number of an unreaped child's group cannot belong to others.
      if (group <= 0 || group == ::getpgrp()) {
        ::kill(id, signal);
        continue;
      }
      bool isKnown = false;
      for (size_t index = 0; index < count; ++index) isKnown |= groups[index] == group;
      if (isKnown) continue;
      if (count < sizeof groups / sizeof *groups) groups[count++] = group;
      ::kill(-group, signal);
    }
  }

  pid_t leader_;  // 0: gone
  const bool endsGroup_;
  bool controlIsOpen_ = true;
  bool hasExited_ = false;
  bool isReported_ = false;
  int status_ = 0;
  int signal_ = 0;
  long killAt_ = never;    // when what is left is to be killed
  long killedAt_ = never;  // since when it is being killed
};

}  // namespace

int main(int count, char** words) {
  if (count < 4 || ::fcntl(controlDescriptor, F_SETFD, FD_CLOEXEC) != 0) return 2;
  const char* const flags = words[1];
  sigset_t all;
  ::sigfillset(&all);
  ::sigprocmask(SIG_SETMASK, &all, nullptr);
  resetLibrarySignals();
  ::signal(SIGCHLD, [](int) {});  // a handler, so that the signal ends the wait
  if (::strchr(flags, mayDetach) == nullptr) ::prctl(PR_SET_CHILD_SUBREAPER, 1);
  const auto launched = launch(words + 3, ::strchr(flags, ownSession) != nullptr, words[2]);
  if (launched.id < 0 || launched.error != 0) {
    report(Report::Kind::failed, static_cast<int>(launched.step), launched.error);
    return 1;
  }
  // The streams and the folder are the child's from here on.
  for (int number = 0; number <= 2; ++number) ::close(number);
  if (::chdir("/") != 0) return 1;
  Supervisor supervisor(launched.id, ::strchr(flags, endsGroupWithLeader) != nullptr);
  // A search for programs by words of their command lines (pkill -f) should find the child only.
  char* const last = words[count - 1];
  ::memset(words[1], '\0', static_cast<size_t>(last + ::strlen(last) - words[1]));
  report(Report::Kind::started, launched.id, 0);
  supervisor.run();
}
