#include "platform/process/process_guard.h"

#include <cerrno>
#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <sys/wait.h>

#include "platform/process/process_spawn.h"

namespace vantrell {

namespace {

/// A guard that dies sooner than this after its start is not started again at once: on a machine
/// whose shell is broken that would go round for ever.
constexpr std::chrono::seconds restartPause{1};

/// Only built-in commands but for the sleep. The list holds the groups with blanks around each.
constexpr const char* script = R"(trap '' HUP INT QUIT TERM
groups=' '
while read -r line; do
  group=${line#?}
  case $line in
    +*) groups="$groups$group " ;;
    -*) case $groups in
          *" $group "*) groups="${groups%%" $group "*} ${groups#*" $group "}" ;;
        esac ;;
  esac
done
left=
for group in $groups; do kill -s TERM -- "-$group" 2>/dev/null && left="$left $group"; done
[ -n "$left" ] || exit 0
sleep 1
for group in $left; do kill -s KILL -- "-$group" 2>/dev/null; done
exit 0
)";

/// The reactor's thread blocks SIGPIPE, so that a guard that is gone is only an error.
bool writeAll(const Descriptor& pipe, const std::string& text) {
  return ::write(pipe.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

}  // namespace

int ProcessGuard::descriptor() {
  if (!pipe_ && steadyUptime() - restartPause >= lastStart_) start();
  return pipe_.get();
}

void ProcessGuard::start() {
  lastStart_ = steadyUptime();
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return;
  const auto theirs = aboveStandard(Descriptor(ends[0]));
  auto ours = aboveStandard(Descriptor(ends[1]));
  ::fcntl(ours.get(), F_SETFL, O_NONBLOCK);
  const auto null = aboveStandard(Descriptor(::open("/dev/null", O_RDWR | O_CLOEXEC)));
  const char* const arguments[] = {"/bin/sh", "-c", script, nullptr};
  const char* const environment[] = {"PATH=/usr/bin:/bin", nullptr};
  SpawnRequest request;
  request.executable = "/bin/sh";
  request.arguments = const_cast<char* const*>(arguments);
  request.environment = const_cast<char* const*>(environment);
  request.folder = "/";
  request.input = theirs.get();
  request.output = null.get();
  request.error = null.get();
  request.ownSession = true;
  request.diesWithParent = false;
  // What a predecessor knew waits in the pipe before the guard is there: this program may be
  // killed at any moment.
  std::string known;
  for (const pid_t group : groups_) known += fmt::format("+{}\n", group);
  if (!known.empty() && !writeAll(ours, known)) return;
  auto spawned = spawn(request);
  if (!spawned) return;
  id_ = spawned->id;
  handle_ = std::move(spawned->handle);
  pipe_ = std::move(ours);
  exitWatch_ = reactor_.whenReadable(handle_.get(), [this] { onExit(); });
}

void ProcessGuard::onExit() {
  exitWatch_.reset();
  while (::waitpid(id_, nullptr, 0) < 0 && errno == EINTR) {
  }
  handle_.reset();
  pipe_.reset();
  if (groups_.empty()) return;
  if (descriptor() < 0) {
    restart_ = reactor_.after(restartPause, [this] {
      if (!groups_.empty()) descriptor();
    });
  }
}

void ProcessGuard::add(pid_t group, bool announced) {
  groups_.insert(group);
  if (!announced) tell(fmt::format("+{}\n", group));
}

void ProcessGuard::remove(pid_t group) {
  groups_.erase(group);
  forget(group);
}

void ProcessGuard::forget(pid_t group) {
  tell(fmt::format("-{}\n", group));
}

void ProcessGuard::tell(const std::string& line) {
  if (!pipe_) return;
  // One that does not listen is as good as gone: its successor learns the whole list.
  if (!writeAll(pipe_, line)) ::kill(id_, SIGKILL);
}

}  // namespace vantrell
