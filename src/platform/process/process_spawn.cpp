#include "platform/process/process_spawn.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>

// glibc's clone by its other name: the thread sanitizer takes the first one for a fork.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" int __clone(int (*function)(void*), void* stack, int flags, void* argument, ...);

// The sanitizers must not see a function that runs on a borrowed stack in borrowed memory.
#define VANTRELL_IN_CHILD __attribute__((noinline, no_sanitize("address", "thread", "undefined")))

namespace vantrell {

namespace {

/// What parent and child share; the parent's thread sleeps while the child writes.
struct Plan {
  const SpawnRequest* request;
  pid_t parent;
  ProcessError::Step step = ProcessError::Step::prepare;
  int error = 0;
  bool toldGuard = false;
};

/// Plain system calls in the child: the C library's functions are intercepted by the sanitizers and
/// keep books about this process. Only errno is shared, and the parent's thread sleeps.
template <typename... Arguments>
VANTRELL_IN_CHILD long call(long number, Arguments... arguments) {
  return ::syscall(number, arguments...);
}

VANTRELL_IN_CHILD void setDisposition(int signal, void* handler) {
  // The kernel's own sigaction: handler, flags, restorer and a mask of 64 bits.
  struct {
    void* handler;
    unsigned long flags = 0;
    void* restorer = nullptr;
    std::uint64_t mask = 0;
  } action{handler};
  call(SYS_rt_sigaction, signal, &action, nullptr, sizeof(std::uint64_t));
}

VANTRELL_IN_CHILD bool tellGuard(int guard) {
  char line[16];
  char* end = line + sizeof line;
  char* start = end;
  *--start = '\n';
  for (auto rest = call(SYS_getpid); rest > 0; rest /= 10) {
    *--start = static_cast<char>('0' + rest % 10);
  }
  *--start = '+';
  const bool told = call(SYS_write, guard, start, end - start) == end - start;
  // Without a reader the write left a SIGPIPE pending, which ignoring it takes away.
  if (!told) setDisposition(SIGPIPE, reinterpret_cast<void*>(SIG_IGN));
  return told;
}

VANTRELL_IN_CHILD void closeOthers() {
  if (call(SYS_close_range, 3U, ~0U, 0U) == 0) return;
  rlimit limit{};  // a kernel before 5.9
  call(SYS_prlimit64, 0, RLIMIT_NOFILE, nullptr, &limit);
  for (rlim_t number = 3; number < limit.rlim_cur; ++number) call(SYS_close, number);
}

VANTRELL_IN_CHILD bool prepare(Plan& plan) {
  const SpawnRequest& request = *plan.request;
  if (request.ownSession) {
    if (call(SYS_setsid) < 0) return false;
  } else if (call(SYS_setpgid, 0, 0) < 0) {
    return false;
  }
  if (request.diesWithParent) {
    call(SYS_prctl, PR_SET_PDEATHSIG, SIGTERM);
    if (call(SYS_getppid) != plan.parent) return false;  // it died just before
  }
  const int sources[3] = {request.input, request.output, request.error};
  for (int number = 0; number < 3; ++number) {
    if (call(SYS_dup3, sources[number], number, 0) < 0) return false;
  }
  if (request.folder != nullptr && call(SYS_chdir, request.folder) < 0) {
    plan.step = ProcessError::Step::enterFolder;
    return false;
  }
  if (request.guard >= 0) plan.toldGuard = tellGuard(request.guard);
  closeOthers();
  // Dispositions first: no handler of this program may run in the child.
  for (int signal = 1; signal <= 64; ++signal) setDisposition(signal, nullptr);
  const std::uint64_t none = 0;
  call(SYS_rt_sigprocmask, SIG_SETMASK, &none, nullptr, sizeof none);
  return true;
}

VANTRELL_IN_CHILD int runChild(void* argument) {
  Plan& plan = *static_cast<Plan*>(argument);
  if (prepare(plan)) {
    const SpawnRequest& request = *plan.request;
    call(SYS_execve, request.executable, request.arguments, request.environment);
    plan.step = ProcessError::Step::execute;
  }
  plan.error = errno == 0 ? ESRCH : errno;
  call(SYS_exit_group, 127);
  __builtin_unreachable();
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (auto& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

/// The child's stack until the exec. One is enough: all spawning is done by one thread.
alignas(64) std::array<std::byte, std::size_t{64} * 1024> childStack;

}  // namespace

ProgramWords::ProgramWords(const std::string& executable, const std::vector<std::string>& arguments,
                           const Environment& environment) {
  arguments_.push_back(executable);
  arguments_.insert(arguments_.end(), arguments.begin(), arguments.end());
  for (const auto& [name, value] : environment) variables_.push_back(name + "=" + value);
  argumentPointers_ = pointersTo(arguments_);
  variablePointers_ = pointersTo(variables_);
}

std::expected<Spawned, SpawnFailure> spawn(const SpawnRequest& request) {
  Plan plan{.request = &request, .parent = ::getpid()};
  int handle = -1;
  errno = 0;
  const pid_t id = ::__clone(runChild, childStack.data() + childStack.size(),
                             CLONE_VM | CLONE_VFORK | CLONE_PIDFD | SIGCHLD, &plan, &handle);
  if (id < 0) return std::unexpected(SpawnFailure{processError(plan.step, errno), 0});
  Spawned spawned{.id = id, .handle = Descriptor(handle), .toldGuard = plan.toldGuard};
  if (plan.error == 0) return spawned;
  while (::waitpid(id, nullptr, 0) < 0 && errno == EINTR) {
  }
  return std::unexpected(
      SpawnFailure{processError(plan.step, plan.error), plan.toldGuard ? id : 0});
}

ProcessError processError(ProcessError::Step step, int error) {
  return {.step = step, .error = error, .description = std::generic_category().message(error)};
}

Descriptor aboveStandard(Descriptor descriptor) {
  if (!descriptor || descriptor.get() > 2) return descriptor;
  return Descriptor(::fcntl(descriptor.get(), F_DUPFD_CLOEXEC, 3));
}

}  // namespace vantrell
