#include "platform/process/process_spawn.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>

#include "platform/process/supervision.h"
#include "platform/terminal/terminal.h"

namespace vantrell {

namespace {

using Step = ProcessError::Step;

/// A larger pipe saves wake-ups on both sides. Best effort: the user's share may be used up.
constexpr int outputPipeBytes = 512 * 1024;

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (auto& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

/// The descriptor, or a copy of it above those that the supervisor gets.
Descriptor aboveStandard(int number) {
  Descriptor descriptor(number);
  if (number < 0 || number > supervision::controlDescriptor) return descriptor;
  return Descriptor(::fcntl(number, F_DUPFD_CLOEXEC, supervision::controlDescriptor + 1));
}

/// The child's end of one of its streams.
struct ChildStreams {
  Descriptor input, output, error;
};

/// Makes a pipe, or gives the child the null device. False with errno.
bool makeStream(bool isPiped, bool isInput, Descriptor& ours, Descriptor& theirs) {
  if (!isPiped) {
    theirs = aboveStandard(::open("/dev/null", O_RDWR | O_CLOEXEC));
    return static_cast<bool>(theirs);
  }
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return false;
  ours = aboveStandard(ends[isInput ? 1 : 0]);
  theirs = aboveStandard(ends[isInput ? 0 : 1]);
  if (!ours || !theirs) return false;
  ::fcntl(ours.get(), F_SETFL, O_NONBLOCK);  // a fresh pipe has no other flags
  return true;
}

class FileActions {
 public:
  FileActions(const ChildStreams& streams, int control) {
    ::posix_spawn_file_actions_init(&actions_);
    ::posix_spawn_file_actions_adddup2(&actions_, streams.input.get(), 0);
    ::posix_spawn_file_actions_adddup2(&actions_, streams.output.get(), 1);
    ::posix_spawn_file_actions_adddup2(&actions_,
                                       (streams.error ? streams.error : streams.output).get(), 2);
    ::posix_spawn_file_actions_adddup2(&actions_, control, supervision::controlDescriptor);
    ::posix_spawn_file_actions_addclosefrom_np(&actions_, supervision::controlDescriptor + 1);
  }
  ~FileActions() { ::posix_spawn_file_actions_destroy(&actions_); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;
  const posix_spawn_file_actions_t* get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
};

std::vector<std::string> supervisorWords(const ProcessOptions& options) {
  std::string flags = "-";
  if (options.endGroupWithLeader) flags += supervision::endsGroupWithLeader;
  if (options.ownSession) flags += supervision::ownSession;
  if (options.mayDetach) flags += supervision::mayDetach;
  std::vector<std::string> words{supervision::programName, std::move(flags), options.workingFolder,
                                 options.executable};
  words.insert(words.end(), options.arguments.begin(), options.arguments.end());
  return words;
}

}  // namespace

ProgramWords::ProgramWords(std::vector<std::string> arguments, const Environment& environment)
    : arguments_(std::move(arguments)) {
  for (const auto& [name, value] : environment) variables_.push_back(name + "=" + value);
  argumentPointers_ = pointersTo(arguments_);
  variablePointers_ = pointersTo(variables_);
}

SpawnAttributes::SpawnAttributes(short flags) {
  ::posix_spawnattr_init(&attributes_);
  sigset_t signals;
  ::sigfillset(&signals);
  ::posix_spawnattr_setsigdefault(&attributes_, &signals);
  ::sigemptyset(&signals);
  ::posix_spawnattr_setsigmask(&attributes_, &signals);
  ::posix_spawnattr_setflags(
      &attributes_, static_cast<short>(POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | flags));
}

std::expected<SpawnedProgram, ProcessError> spawn(const ProcessOptions& options) {
  using In = ProcessOptions::Input;
  using Out = ProcessOptions::Output;
  SpawnedProgram spawned;
  ChildStreams theirs;
  const bool isOutputPiped = options.standardOutput == Out::pipe;
  const bool isErrorPiped = options.standardError == Out::pipe;
  int ends[2];
  if (!makeStream(options.standardInput == In::pipe, true, spawned.input, theirs.input) ||
      !makeStream(isOutputPiped, false, spawned.output, theirs.output) ||
      (!options.mergeErrorIntoOutput &&
       !makeStream(isErrorPiped, false, spawned.error, theirs.error)) ||
      ::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
    return std::unexpected(processError(Step::prepare, errno));
  }
  spawned.control = aboveStandard(ends[0]);
  Descriptor control = aboveStandard(ends[1]);
  if (!spawned.control || !control) return std::unexpected(processError(Step::prepare, errno));
  if (spawned.output) ::fcntl(spawned.output.get(), F_SETPIPE_SZ, outputPipeBytes);

  static const std::string supervisor = terminal::programFolder() + "/" + supervision::programName;
  const ProgramWords words(supervisorWords(options), options.environment);
  {
    const FileActions actions(theirs, control.get());
    // A group of its own: Ctrl-C at the terminal is not for it.
    const SpawnAttributes attributes(POSIX_SPAWN_SETPGROUP);
    const int error = ::posix_spawn(&spawned.supervisor, supervisor.c_str(), actions.get(),
                                    attributes.get(), words.arguments(), words.environment());
    if (error == E2BIG) return std::unexpected(processError(Step::execute, error));
    if (error == ENOENT || error == EACCES) {
      return std::unexpected(ProcessError{
          .step = Step::prepare,
          .error = error,
          .description = fmt::format("Vantrell's own program {} is missing", supervisor)});
    }
    if (error != 0) return std::unexpected(processError(Step::prepare, error));
  }
  control.reset();
  supervision::Report report;
  ssize_t length = 0;
  do {
    length = ::recv(spawned.control.get(), &report, sizeof report, 0);
  } while (length < 0 && errno == EINTR);
  const bool isWhole = length == sizeof report;
  if (isWhole && report.kind == supervision::Report::Kind::started) {
    spawned.id = report.first;
    return spawned;
  }
  reapProgram(spawned.supervisor);
  if (!isWhole) return std::unexpected(processError(Step::prepare, ECHILD));
  return std::unexpected(processError(static_cast<Step>(report.first), report.second));
}

void reapProgram(pid_t id) {
  while (::waitpid(id, nullptr, 0) < 0 && errno == EINTR) {
  }
}

ProcessError processError(ProcessError::Step step, int error) {
  return {.step = step, .error = error, .description = std::generic_category().message(error)};
}

}  // namespace vantrell
