#include "platform/process/process.h"

#include <algorithm>
#include <array>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <cerrno>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include "platform/process/process_spawn.h"
#include "platform/process/supervision.h"

namespace vantrell {

namespace asio = boost::asio;

namespace {

using Milliseconds = std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;
using supervision::Command;
using supervision::Report;

constexpr std::size_t chunkBytes = std::size_t{128} * 1024;
/// This bounds what a child can have in memory to 512 KiB for both of its streams. Counted for each
/// by itself: a flood of errors does not hold back the output.
constexpr int chunksPerStream = 2;

/// The thread that feeds, reads and reaps all children. It runs until the program ends, because
/// children may outlive every other object.
class Children {
 public:
  static Children& shared() {
    static auto* const children = new Children;
    return *children;
  }
  /// Whether any child was ever started.
  static bool areAny() { return areAny_; }

  asio::io_context& context() { return context_; }
  void add() {
    const std::lock_guard lock(mutex_);
    ++count_;
  }
  void remove() {
    const std::lock_guard lock(mutex_);
    if (--count_ == 0) none_.notify_all();
  }
  bool waitForNone(Milliseconds limit) {
    std::unique_lock lock(mutex_);
    return none_.wait_for(lock, limit, [this] { return count_ == 0; });
  }

 private:
  Children() {
    areAny_ = true;
    sigset_t all;
    sigset_t before;
    ::sigfillset(&all);
    // A write to a closed pipe is then only an error.
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    std::thread([this] { context_.run(); }).detach();
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  }

  static inline std::atomic<bool> areAny_ = false;
  asio::io_context context_{1};
  asio::executor_work_guard<asio::io_context::executor_type> work_{context_.get_executor()};
  std::mutex mutex_;
  std::condition_variable none_;
  int count_ = 0;
};

bool hasNul(const std::string& text) {
  return text.find('\0') != std::string::npos;
}

/// What execve would misread without an error.
bool isUsable(const ProcessOptions& options) {
  if (hasNul(options.executable) || hasNul(options.workingFolder)) return false;
  if (std::ranges::any_of(options.arguments, hasNul)) return false;
  return std::ranges::none_of(options.environment, [](const auto& variable) {
    const auto& [name, value] = variable;
    return name.empty() || name.contains('=') || hasNul(name) || hasNul(value);
  });
}

/// One child until its supervisor has ended, however long its owner lives: what waits on the
/// children's thread holds it.
class Child final : public Process, public std::enable_shared_from_this<Child> {
 public:
  Child(SerialQueue queue, Handlers handlers)
      : queue_(std::move(queue)),
        handlers_(std::make_shared<const Handlers>(std::move(handlers))) {}

  std::int64_t processID() const override { return id_; }
  std::size_t unsentBytes() const override { return unsent_; }
  bool isRunning() const override { return isRunning_; }

  void start(SpawnedProgram program, bool endsGroup) {
    id_ = program.id;
    Children::shared().add();
    auto held = std::make_shared<SpawnedProgram>(std::move(program));
    onThread([held, endsGroup](Child& self) { self.begin(*held, endsGroup); });
  }

  void write(std::string bytes) override {
    if (bytes.empty()) return;
    {
      const std::lock_guard lock(mutex_);
      if (isInputClosed_) return;
      unsent_ += bytes.size();
      pieces_.push_back(std::move(bytes));
      if (pieces_.size() > 1) return;
    }
    onThread([](Child& self) { self.send(); });
  }

  void closeInput() override {
    {
      const std::lock_guard lock(mutex_);
      if (std::exchange(isInputClosed_, true)) return;
    }
    onThread([](Child& self) { self.send(); });
  }

  void pauseReading() override {
    onThread([](Child& self) { self.setPaused(true); });
  }

  void resumeReading() override {
    onThread([](Child& self) { self.setPaused(false); });
  }

  void terminate(Milliseconds grace) override {
    onThread([grace](Child& self) { self.terminateNow(grace); });
  }

  /// No handler begins from now on.
  void stop(Milliseconds grace, Milliseconds patience) override {
    {
      const std::lock_guard lock(mutex_);
      if (std::exchange(isStopped_, true)) return;
      isInputClosed_ = true;
      // What the handlers hold is destroyed on their own queue, where one of them may be running.
      if (auto handlers = std::exchange(handlers_, nullptr)) {
        queue_.post([handlers = std::move(handlers)] {});
      }
    }
    onThread([grace, patience](Child& self) { self.stopNow(grace, patience); });
  }

 private:
  template <typename Call>
  void onThread(Call call) {
    asio::post(context_, [self = shared_from_this(), call = std::move(call)] { call(*self); });
  }

  // The children's thread from here on.

  void setPaused(bool isPaused) {
    if (isStopped()) return;
    isPaused_ = isPaused;
    readOn();
  }

  void terminateNow(Milliseconds grace) {
    if (grace <= Milliseconds::zero()) return command(Command::kill);
    command(Command::terminate);
    const auto instant = Clock::now() + grace;
    if (killInstant_ && *killInstant_ <= instant) return;
    killInstant_ = instant;
    killTimer_.expires_at(instant);
    killTimer_.async_wait([self = shared_from_this()](const boost::system::error_code& error) {
      if (!error) self->command(Command::kill);
    });
  }

  struct Source {
    explicit Source(asio::io_context& context) : pipe(context) {}
    asio::posix::stream_descriptor pipe;
    bool isWaiting = false;
    std::function<void(std::string_view)> Handlers::* handler = nullptr;
    int chunksOnTheirWay = 0;  // under the mutex
  };

  void begin(SpawnedProgram& program, bool endsGroup) {
    supervisor_ = program.supervisor;
    endsGroup_ = endsGroup;
    control_.assign(program.control.release());
    if (program.input) input_.assign(program.input.release());
    if (program.output) output_.pipe.assign(program.output.release());
    if (program.error) error_.pipe.assign(program.error.release());
    output_.handler = &Handlers::onOutput;
    error_.handler = &Handlers::onError;
    awaitReport();
    readOn();
  }

  // Output.

  void readOn() {
    for (Source* source : {&output_, &error_}) readOn(*source);
  }

  bool mayRead(Source& source) {
    const std::lock_guard lock(mutex_);
    return source.pipe.is_open() && !isPaused_ &&
           (isStopped_ || source.chunksOnTheirWay < chunksPerStream);
  }

  void readOn(Source& source) {
    if (source.isWaiting || !mayRead(source)) return;
    source.isWaiting = true;
    source.pipe.async_wait(
        asio::posix::stream_descriptor::wait_read,
        [self = shared_from_this(), &source](const boost::system::error_code& error) {
          source.isWaiting = false;
          if (!error && self->mayRead(source)) self->readChunk(source);
        });
  }

  void readChunk(Source& source) {
    static std::array<char, chunkBytes> buffer;  // the children's thread only
    const ssize_t count = ::read(source.pipe.native_handle(), buffer.data(), buffer.size());
    if (count > 0) {
      deliver(source, std::string(buffer.data(), static_cast<std::size_t>(count)));
    } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
      close(source.pipe);
      if (hasExited_ && isOutputAtEnd()) finish();
      return;
    }
    readOn(source);
  }

  /// What is in the pipe at this moment and no more: a grandchild may go on writing forever.
  void readWhatIsThere(Source& source) {
    int left = 0;
    if (!source.pipe.is_open() || ::ioctl(source.pipe.native_handle(), FIONREAD, &left) != 0)
      return;
    while (left > 0) {
      std::string chunk(std::min(chunkBytes, static_cast<std::size_t>(left)), '\0');
      const ssize_t count = ::read(source.pipe.native_handle(), chunk.data(), chunk.size());
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) return;
      chunk.resize(static_cast<std::size_t>(count));
      left -= static_cast<int>(count);
      deliver(source, std::move(chunk));
    }
  }

  void deliver(Source& source, std::string bytes) {
    const std::lock_guard lock(mutex_);
    if (!handlers_) return;
    ++source.chunksOnTheirWay;
    queue_.post([self = shared_from_this(), &source, bytes = std::move(bytes)]() mutable {
      if (const auto handlers = self->liveHandlers()) {
        if (const auto& handler = (*handlers).*source.handler) handler(bytes);
      }
      bytes = {};
      {
        const std::lock_guard again(self->mutex_);
        if (source.chunksOnTheirWay-- < chunksPerStream) return;
      }
      self->onThread([&source](Child& child) { child.readOn(source); });
    });
  }

  bool isOutputAtEnd() const { return !output_.pipe.is_open() && !error_.pipe.is_open(); }

  // Input.

  void send() {
    if (isSending_) return;
    std::string_view piece;
    {
      const std::lock_guard lock(mutex_);
      // Text is at rest while it is sent: a deque does not move its elements.
      if (!pieces_.empty()) piece = std::string_view(pieces_.front()).substr(sentOfFirst_);
      if (pieces_.empty() && !isInputClosed_) return;
    }
    if (piece.empty()) return close(input_);
    // Written between the end of the input and its report.
    if (!input_.is_open()) return dropInput(EPIPE);
    isSending_ = true;
    input_.async_write_some(
        asio::buffer(piece),
        [self = shared_from_this()](const boost::system::error_code& error, std::size_t count) {
          self->isSending_ = false;
          if (error == asio::error::operation_aborted) return;
          if (error) return self->dropInput(error.value());
          self->sent(count);
        });
  }

  void sent(std::size_t count) {
    {
      const std::lock_guard lock(mutex_);
      unsent_ -= count;
      sentOfFirst_ += count;
      if (!pieces_.empty() && sentOfFirst_ == pieces_.front().size()) {
        pieces_.pop_front();
        sentOfFirst_ = 0;
      }
    }
    send();
  }

  /// The child takes no more input: drops what is unsent, and reports it if there was any.
  void dropInput(int error) {
    close(input_);
    const std::lock_guard lock(mutex_);
    isInputClosed_ = true;
    pieces_.clear();
    sentOfFirst_ = 0;
    if (unsent_.exchange(0) == 0 || !handlers_) return;
    queue_.post([self = shared_from_this(), error] {
      const auto handlers = self->liveHandlers();
      if (!handlers || !handlers->onWriteError) return;
      handlers->onWriteError(processError(ProcessError::Step::write, error));
    });
  }

  // The end.

  void stopNow(Milliseconds grace, Milliseconds patience) {
    // Read on, though nothing is delivered: a closed pipe would kill the child at its next write.
    isPaused_ = false;
    readOn();
    if (patience > Milliseconds::zero() && !hasExited_) {
      send();
      patienceTimer_.expires_after(patience);
      patienceTimer_.async_wait(
          [self = shared_from_this(), grace](const boost::system::error_code& error) {
            if (!error) self->terminateNow(grace);
          });
      return;
    }
    dropInput(EPIPE);
    terminateNow(grace);
  }

  void command(Command command) {
    if (control_.is_open())
      ::send(control_.native_handle(), &command, sizeof command, MSG_NOSIGNAL);
  }

  void awaitReport() {
    control_.async_wait(asio::posix::stream_descriptor::wait_read,
                        [self = shared_from_this()](const boost::system::error_code& error) {
                          if (!error) self->takeReport();
                        });
  }

  void takeReport() {
    Report report;
    const ssize_t length = ::recv(control_.native_handle(), &report, sizeof report, MSG_DONTWAIT);
    if (length < 0 && (errno == EAGAIN || errno == EINTR)) return awaitReport();
    if (length != sizeof report) return onSupervisorEnd();
    if (report.kind == Report::Kind::exited) onExit({report.first, report.second});
    awaitReport();
  }

  void onExit(ExitStatus status) {
    hasExited_ = true;
    patienceTimer_.cancel();
    if (!isStopped()) {
      readWhatIsThere(output_);
      readWhatIsThere(error_);
    }
    dropInput(EPIPE);
    if (endsGroup_) closeOutput();
    isRunning_ = false;
    {
      const std::lock_guard lock(mutex_);
      if (handlers_) {
        queue_.post([self = shared_from_this(), status, isLast = isOutputAtEnd()] {
          const auto handlers = isLast ? self->releaseHandlers() : self->liveHandlers();
          if (handlers && handlers->onExit) handlers->onExit(status);
        });
      }
    }
    // What is left of the group goes on writing: a closed pipe would kill it.
    readOn();
  }

  /// Nothing of the child is left, or its supervisor was killed, and the child with it.
  void onSupervisorEnd() {
    if (!hasExited_) onExit({.signal = SIGKILL});
    if (isStopped()) closeOutput();
    killTimer_.cancel();
    close(control_);
    reapProgram(supervisor_);
    Children::shared().remove();
  }

  void closeOutput() {
    close(output_.pipe);
    close(error_.pipe);
  }

  static void close(asio::posix::stream_descriptor& descriptor) {
    boost::system::error_code ignored;
    std::ignore = descriptor.close(ignored);
  }

  // Handlers.

  bool isStopped() const {
    const std::lock_guard lock(mutex_);
    return isStopped_;
  }
  std::shared_ptr<const Handlers> liveHandlers() const {
    const std::lock_guard lock(mutex_);
    return handlers_;
  }
  /// Breaks circles of handlers that hold their own Process.
  std::shared_ptr<const Handlers> releaseHandlers() {
    const std::lock_guard lock(mutex_);
    return std::exchange(handlers_, nullptr);
  }
  /// Releases the handlers after all that was reported.
  void finish() {
    queue_.post([self = shared_from_this()] { self->releaseHandlers(); });
  }

  const SerialQueue queue_;
  pid_t id_ = 0;
  std::atomic<std::size_t> unsent_ = 0;
  std::atomic<bool> isRunning_ = true;

  mutable std::mutex mutex_;
  std::shared_ptr<const Handlers> handlers_;  // null: stopped, or nothing more will come
  bool isStopped_ = false;
  bool isInputClosed_ = false;
  std::deque<std::string> pieces_;
  std::size_t sentOfFirst_ = 0;

  asio::io_context& context_ = Children::shared().context();
  pid_t supervisor_ = 0;
  bool endsGroup_ = true;
  asio::posix::stream_descriptor control_{context_};
  asio::posix::stream_descriptor input_{context_};
  Source output_{context_};
  Source error_{context_};
  bool isPaused_ = false;
  bool isSending_ = false;
  bool hasExited_ = false;
  std::optional<Clock::time_point> killInstant_;
  asio::steady_timer killTimer_{context_};
  asio::steady_timer patienceTimer_{context_};
};

}  // namespace

Environment currentEnvironment() {
  Environment result;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    const std::string_view text(*entry);
    const auto equals = text.find('=');
    if (equals == 0 || equals == std::string_view::npos) continue;
    result.emplace(text.substr(0, equals), text.substr(equals + 1));
  }
  return result;
}

std::expected<std::shared_ptr<Process>, ProcessError> Process::start(ProcessOptions options,
                                                                     SerialQueue queue,
                                                                     Handlers handlers) {
  using Step = ProcessError::Step;
  if (!isUsable(options)) return std::unexpected(processError(Step::prepare, EINVAL));
  // Never looked up, least of all in a project's folder.
  if (!options.executable.starts_with('/')) {
    return std::unexpected(processError(Step::execute, ENOENT));
  }
  auto program = spawn(options);
  if (!program) return std::unexpected(std::move(program.error()));
  const auto child = std::make_shared<Child>(std::move(queue), std::move(handlers));
  child->start(std::move(*program), options.endGroupWithLeader);
  // Its own references end with the child; this one with its owner.
  return std::shared_ptr<Process>(child.get(),
                                  [child](Process*) { child->stop(Milliseconds::zero(), {}); });
}

bool Process::waitForAll(Milliseconds limit) {
  return !Children::areAny() || Children::shared().waitForNone(limit);
}

}  // namespace vantrell
