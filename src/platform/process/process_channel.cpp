#include "platform/process/process_channel.h"

namespace vantrell {

namespace {

/// With chunks of at most 128 KiB this bounds what a child can have in memory to 512 KiB for both
/// of its streams. Counted for each by itself: a flood of errors does not hold back the output.
constexpr int chunksPerStream = 2;

}  // namespace

ProcessChannel::ProcessChannel(SerialQueue queue, ProcessHandlers handlers)
    : queue_(std::move(queue)),
      handlers_(std::make_shared<const ProcessHandlers>(std::move(handlers))) {}

bool ProcessChannel::write(std::string bytes) {
  if (bytes.empty()) return false;
  const std::lock_guard lock(mutex_);
  if (inputClosed_) return false;
  unsent_ += bytes.size();
  outgoing_.pieces.push_back(std::move(bytes));
  return outgoing_.pieces.size() == 1;
}

bool ProcessChannel::closeInput() {
  const std::lock_guard lock(mutex_);
  if (inputClosed_) return false;
  inputClosed_ = true;
  outgoing_.thenClose = true;
  return true;
}

bool ProcessChannel::stop() {
  std::shared_ptr<const ProcessHandlers> handlers;
  const std::lock_guard lock(mutex_);
  if (std::exchange(stopped_, true)) return false;
  inputClosed_ = true;
  handlers = std::exchange(handlers_, nullptr);
  // What the handlers hold goes on their own queue, where one of them may be running.
  if (handlers) queue_.post([handlers = std::move(handlers)] {});
  return true;
}

ProcessChannel::Outgoing ProcessChannel::takeOutgoing() {
  const std::lock_guard lock(mutex_);
  return std::exchange(outgoing_, {});
}

void ProcessChannel::inputEnded(const ProcessError& error) {
  {
    const std::lock_guard lock(mutex_);
    inputClosed_ = true;
    outgoing_ = {};
  }
  if (unsent_.exchange(0) == 0) return;
  post([error](const ProcessHandlers& handlers) {
    if (handlers.onWriteError) handlers.onWriteError(error);
  });
}

bool ProcessChannel::hasRoom(Stream stream) {
  const std::lock_guard lock(mutex_);
  auto& flow = flows_[static_cast<std::size_t>(stream)];
  flow.waitsForRoom = flow.chunksOnTheirWay >= chunksPerStream && !stopped_;
  return !flow.waitsForRoom;
}

void ProcessChannel::deliver(Stream stream, std::string bytes) {
  const std::lock_guard lock(mutex_);
  if (!handlers_) return;
  ++flows_[static_cast<std::size_t>(stream)].chunksOnTheirWay;
  queue_.post([self = shared_from_this(), stream, bytes = std::move(bytes)]() mutable {
    if (const auto handlers = self->liveHandlers()) {
      const auto& handler = stream == Stream::output ? handlers->onOutput : handlers->onError;
      if (handler) handler(bytes);
    }
    bytes = {};
    self->handled(stream);
  });
}

void ProcessChannel::handled(Stream stream) {
  {
    const std::lock_guard lock(mutex_);
    auto& flow = flows_[static_cast<std::size_t>(stream)];
    --flow.chunksOnTheirWay;
    if (!std::exchange(flow.waitsForRoom, false) || stopped_) return;
  }
  roomAgain(stream);
}

void ProcessChannel::exited(ExitStatus status, bool isLastEvent) {
  running_ = false;
  const std::lock_guard lock(mutex_);
  if (!handlers_) return;
  queue_.post([self = shared_from_this(), status, isLastEvent] {
    const auto handlers = isLastEvent ? self->releaseHandlers() : self->liveHandlers();
    if (handlers && handlers->onExit) handlers->onExit(status);
  });
}

void ProcessChannel::finish() {
  const std::lock_guard lock(mutex_);
  if (handlers_) queue_.post([self = shared_from_this()] { self->releaseHandlers(); });
}

void ProcessChannel::post(std::function<void(const ProcessHandlers&)> call) {
  const std::lock_guard lock(mutex_);
  if (!handlers_) return;
  queue_.post([self = shared_from_this(), call = std::move(call)] {
    if (const auto handlers = self->liveHandlers()) call(*handlers);
  });
}

/// Breaks circles of handlers that hold their own Process.
std::shared_ptr<const ProcessHandlers> ProcessChannel::releaseHandlers() {
  const std::lock_guard lock(mutex_);
  return std::exchange(handlers_, nullptr);
}

std::shared_ptr<const ProcessHandlers> ProcessChannel::liveHandlers() const {
  const std::lock_guard lock(mutex_);
  return handlers_;
}

}  // namespace vantrell
