#include "platform/process/process_child.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>

#include "platform/process/process_spawn.h"
#include "platform/process/process_supervisor.h"

namespace vantrell {

using Stream = ProcessChannel::Stream;

namespace {

constexpr std::size_t chunkBytes = std::size_t{128} * 1024;
/// A larger pipe saves wake-ups on both sides. Best effort: the user may have used up his share.
constexpr int outputPipeBytes = 512 * 1024;
/// How soon a group that lost its leader is looked at again while it has its grace: most end within
/// the first of these, each look at one that does not doubles it up to the second, because it is a
/// walk through all processes of the machine.
constexpr std::chrono::milliseconds firstGroupCheck{20};
constexpr std::chrono::milliseconds lastGroupCheck{640};

struct Pipe {
  Descriptor reading;
  Descriptor writing;
};

std::expected<Pipe, ProcessError> makePipe() {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) {
    return std::unexpected(processError(ProcessError::Step::prepare, errno));
  }
  Pipe made{aboveStandard(Descriptor(ends[0])), aboveStandard(Descriptor(ends[1]))};
  if (made.reading && made.writing) return made;
  return std::unexpected(processError(ProcessError::Step::prepare, errno));
}

void setNonBlocking(const Descriptor& descriptor) {
  ::fcntl(descriptor.get(), F_SETFL, O_NONBLOCK);  // a fresh pipe has no other flags
}

/// The state and the group of a process, from its /proc/<id>/stat.
struct ProcessState {
  char letter = 'X';
  long group = 0;
};

ProcessState stateOf(int procFolder, const char* id) {
  char name[64];
  char text[512];  // what is needed comes within the first 100
  *fmt::format_to_n(name, sizeof name - 1, "{}/stat", id).out = '\0';
  const Descriptor file(::openat(procFolder, name, O_RDONLY | O_CLOEXEC));
  const ssize_t length = file ? ::read(file.get(), text, sizeof text - 1) : 0;
  if (length <= 0) return {};
  text[length] = '\0';
  // The name is in parentheses and may contain anything: "12 (a) b) S 1 12 ...".
  const char* const end = std::strrchr(text, ')');
  if (end == nullptr || end + 3 >= text + length) return {};
  char* rest = nullptr;
  std::strtol(end + 3, &rest, 10);  // the parent
  return {end[2], std::strtol(rest, nullptr, 10)};
}

/// Whether the group has a member that still runs: a zombie is none. A signal to the group cannot
/// tell while its leader is a zombie, it can only say that nobody is left at all.
bool groupHasMembers(pid_t group) {
  if (::kill(-group, 0) != 0 && errno == ESRCH) return false;
  DIR* const folder = ::opendir("/proc");
  if (folder == nullptr) return true;
  bool found = false;
  while (const dirent* entry = found ? nullptr : ::readdir(folder)) {
    if (entry->d_name[0] < '1' || entry->d_name[0] > '9') continue;
    const auto state = stateOf(::dirfd(folder), entry->d_name);
    found = state.group == group && state.letter != 'Z' && state.letter != 'X';
  }
  ::closedir(folder);
  return found;
}

}  // namespace

ProcessChild::ProcessChild(ProcessSupervisor& supervisor, std::shared_ptr<ProcessChannel> channel)
    : supervisor_(supervisor), channel_(std::move(channel)), groupCheck_(firstGroupCheck) {}

std::expected<void, ProcessError> ProcessChild::launch(const ProcessOptions& options) {
  const ProgramWords words(options.executable, options.arguments, options.environment);
  SpawnRequest request;
  request.executable = options.executable.c_str();
  request.arguments = words.arguments();
  request.environment = words.environment();
  request.folder = options.workingFolder.empty() ? nullptr : options.workingFolder.c_str();
  request.ownSession = options.ownSession;
  request.input = request.output = request.error = supervisor_.nullDevice();

  Descriptor childInput;
  Descriptor childOutput;
  Descriptor childError;
  if (options.standardInput == ProcessOptions::Input::pipe) {
    auto made = makePipe();
    if (!made) return std::unexpected(made.error());
    childInput = std::move(made->reading);
    input_ = std::move(made->writing);
    setNonBlocking(input_);
    request.input = childInput.get();
  }
  if (options.standardOutput == ProcessOptions::Output::pipe) {
    auto made = makePipe();
    if (!made) return std::unexpected(made.error());
    childOutput = std::move(made->writing);
    output_.pipe = std::move(made->reading);
    setNonBlocking(output_.pipe);
    ::fcntl(output_.pipe.get(), F_SETPIPE_SZ, outputPipeBytes);
    request.output = childOutput.get();
  }
  if (options.mergeErrorIntoOutput) {
    request.error = request.output;
  } else if (options.standardError == ProcessOptions::Output::pipe) {
    auto made = makePipe();
    if (!made) return std::unexpected(made.error());
    childError = std::move(made->writing);
    error_.pipe = std::move(made->reading);
    setNonBlocking(error_.pipe);
    request.error = childError.get();
  }
  request.guard = supervisor_.guard().descriptor();

  auto spawned = spawn(request);
  if (!spawned) {
    if (spawned.error().toldGuard != 0) supervisor_.guard().forget(spawned.error().toldGuard);
    return std::unexpected(spawned.error().error);
  }
  id_ = spawned->id;
  handle_ = std::move(spawned->handle);
  endsGroupWithLeader_ = options.endGroupWithLeader;
  supervisor_.guard().add(id_, spawned->toldGuard);
  supervisor_.add(shared_from_this());
  exitWatch_ = supervisor_.reactor().whenReadable(handle_.get(), [this] { onLeaderExit(); });
  updateReading(Stream::output);
  updateReading(Stream::error);
  return {};
}

ProcessChild::Source& ProcessChild::source(Stream stream) {
  return stream == Stream::output ? output_ : error_;
}

void ProcessChild::updateReading(Stream stream) {
  auto& from = source(stream);
  if (!from.pipe || paused_ || !channel_->hasRoom(stream)) {
    from.watch.reset();
  } else if (!from.watch) {
    from.watch =
        supervisor_.reactor().whenReadable(from.pipe.get(), [this, stream] { readChunk(stream); });
  }
}

void ProcessChild::readChunk(Stream stream) {
  static std::array<char, chunkBytes> buffer;  // the reactor's thread only
  auto& from = source(stream);
  const ssize_t count = ::read(from.pipe.get(), buffer.data(), buffer.size());
  if (count > 0) {
    channel_->deliver(stream, std::string(buffer.data(), static_cast<std::size_t>(count)));
    updateReading(stream);
  } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
    from.close();
    if (leaderExited_ && outputEnded()) channel_->finish();
  }
}

/// What is in the pipe at this moment and no more: a grandchild may go on writing for ever.
void ProcessChild::readWhatIsThere(Stream stream) {
  auto& from = source(stream);
  from.watch.reset();
  int left = 0;
  if (!from.pipe || ::ioctl(from.pipe.get(), FIONREAD, &left) != 0) return;
  while (left > 0) {
    std::string chunk(std::min(chunkBytes, static_cast<std::size_t>(left)), '\0');
    const ssize_t count = ::read(from.pipe.get(), chunk.data(), chunk.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return;
    chunk.resize(static_cast<std::size_t>(count));
    left -= static_cast<int>(count);
    channel_->deliver(stream, std::move(chunk));
  }
}

void ProcessChild::readAgain(Stream stream) {
  updateReading(stream);
}

void ProcessChild::setPaused(bool paused) {
  if (stopped_) return;
  paused_ = paused;
  updateReading(Stream::output);
  updateReading(Stream::error);
}

void ProcessChild::takeInput() {
  auto outgoing = channel_->takeOutgoing();
  if (!input_) {
    // Written between the end of the input and its report.
    channel_->inputEnded(processError(ProcessError::Step::write, EPIPE));
    return;
  }
  for (auto& piece : outgoing.pieces) pieces_.push_back(std::move(piece));
  closesInput_ = closesInput_ || outgoing.thenClose;
  sendPieces();
}

void ProcessChild::sendPieces() {
  while (!pieces_.empty()) {
    const auto& piece = pieces_.front();
    const ssize_t count =
        ::write(input_.get(), piece.data() + sentOfFirst_, piece.size() - sentOfFirst_);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && errno == EAGAIN) {
      if (!inputWatch_) {
        inputWatch_ = supervisor_.reactor().whenWritable(input_.get(), [this] { sendPieces(); });
      }
      return;
    }
    if (count < 0) {
      const int error = errno;
      closeInput();
      channel_->inputEnded(processError(ProcessError::Step::write, error));
      return;
    }
    channel_->sent(static_cast<std::size_t>(count));
    sentOfFirst_ += static_cast<std::size_t>(count);
    if (sentOfFirst_ < piece.size()) continue;
    pieces_.pop_front();
    sentOfFirst_ = 0;
  }
  inputWatch_.reset();
  if (closesInput_) closeInput();
}

void ProcessChild::closeInput() {
  inputWatch_.reset();
  input_.reset();
  pieces_.clear();
  sentOfFirst_ = 0;
}

void ProcessChild::onLeaderExit() {
  // The zombie stays for now: while it is there nobody else can get its id, nor the group's.
  siginfo_t info{};
  if (::waitid(P_PIDFD, static_cast<id_t>(handle_.get()), &info, WEXITED | WNOWAIT | WNOHANG) !=
      0) {
    if (errno == EINTR) return;
    info.si_code = CLD_EXITED;  // somebody else reaped it: how it ended is lost
    info.si_status = 255;
  } else if (info.si_pid == 0) {
    return;
  }
  ExitStatus status;
  (info.si_code == CLD_EXITED ? status.status : status.signal) = info.si_status;
  leaderExited_ = true;
  exitWatch_.reset();
  if (endsGroupWithLeader_) ::kill(-id_, SIGKILL);
  if (!stopped_) {
    readWhatIsThere(Stream::output);
    readWhatIsThere(Stream::error);
  }
  closeInput();
  if (endsGroupWithLeader_) {
    output_.close();
    error_.close();
    // Nothing of the child is left when its exit is reported, and its exit is on its way when
    // nobody waits for it any more.
    bury();
  }
  channel_->inputEnded(processError(ProcessError::Step::write, EPIPE));
  channel_->exited(status, outputEnded());
  if (endsGroupWithLeader_) return retire();
  // Those that are left go on writing: a closed pipe would kill them at their next word.
  updateReading(Stream::output);
  updateReading(Stream::error);
  if (stopped_) awaitGroup();
}

void ProcessChild::terminate(Duration grace) {
  if (buried_) return;
  if (grace <= Duration::zero()) return killGroup();
  ::kill(-id_, SIGTERM);
  ::kill(-id_, SIGCONT);  // one that is suspended could not even die
  killBy(steadyUptime() + grace);
}

void ProcessChild::stop(Duration grace, Duration patience) {
  if (std::exchange(stopped_, true) || buried_) return;
  // Read on, though nobody listens: a closed pipe would kill the child at its first word of
  // farewell.
  paused_ = false;
  updateReading(Stream::output);
  updateReading(Stream::error);
  if (patience > Duration::zero() && !leaderExited_) {
    closesInput_ = true;
    takeInput();
    patienceTimer_ = supervisor_.reactor().after(patience, [this, grace] { terminate(grace); });
    return;
  }
  closeInput();
  channel_->inputEnded({});
  terminate(grace);
  if (leaderExited_) awaitGroup();
}

void ProcessChild::killBy(Duration instant) {
  if (killInstant_ && *killInstant_ <= instant) return;
  killInstant_ = instant;
  killTimer_ = supervisor_.reactor().after(instant - steadyUptime(), [this] { killGroup(); });
}

void ProcessChild::killGroup() {
  ::kill(-id_, SIGKILL);
  killInstant_.reset();
  // Without a stop, what the group had written is still to be read.
  if (leaderExited_ && stopped_) retire();
}

/// The leader is a zombie, the others have their grace. Only when leader and group end apart.
void ProcessChild::awaitGroup() {
  if (buried_) return;
  if (!groupHasMembers(id_)) return retire();
  groupTimer_ = supervisor_.reactor().after(groupCheck_, [this] { awaitGroup(); });
  groupCheck_ = std::min<Duration>(2 * groupCheck_, lastGroupCheck);
}

/// Frees the id, and with it the group's.
void ProcessChild::bury() {
  if (std::exchange(buried_, true)) return;
  patienceTimer_.cancel();
  killTimer_.cancel();
  groupTimer_.cancel();
  // While the id is still taken: the guard must never end a group that has it after this one.
  supervisor_.guard().remove(id_);
  siginfo_t info{};
  while (::waitid(P_PIDFD, static_cast<id_t>(handle_.get()), &info, WEXITED) != 0 &&
         errno == EINTR) {
  }
  handle_.reset();
}

void ProcessChild::retire() {
  bury();
  supervisor_.remove(shared_from_this());  // may be the last that holds this object
}

}  // namespace vantrell
