#include "platform/process/process.h"

#include <cerrno>
#include <future>
#include <unistd.h>

#include "platform/process/process_child.h"
#include "platform/process/process_spawn.h"
#include "platform/process/process_supervisor.h"

namespace vantrell {

namespace {

ProcessReactor& reactor() {
  return ProcessSupervisor::shared().reactor();
}

bool hasNul(const std::string& text) {
  return text.find('\0') != std::string::npos;
}

/// What execve would misread without a word.
bool isUsable(const ProcessOptions& options) {
  if (hasNul(options.executable) || hasNul(options.workingFolder)) return false;
  if (std::ranges::any_of(options.arguments, hasNul)) return false;
  return std::ranges::none_of(options.environment, [](const auto& variable) {
    const auto& [name, value] = variable;
    return name.empty() || name.contains('=') || hasNul(name) || hasNul(value);
  });
}

}  // namespace

struct Process::Impl {
  std::shared_ptr<ProcessChannel> channel;
  std::weak_ptr<ProcessChild> child;
  pid_t id = 0;

  template <typename Call>
  void onReactor(Call call) const {
    reactor().post([weak = child, call = std::move(call)] {
      if (const auto strong = weak.lock()) call(*strong);
    });
  }
};

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

Process::Process(std::shared_ptr<Impl> impl) : impl_(std::move(impl)) {}

Process::~Process() {
  stop(std::chrono::milliseconds::zero());
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
  using Launched = std::expected<std::shared_ptr<Impl>, ProcessError>;
  std::promise<Launched> promise;
  auto launched = promise.get_future();
  auto channel = std::make_shared<ProcessChannel>(std::move(queue), std::move(handlers));
  reactor().post([&options, channel, promise = std::move(promise)]() mutable {
    auto child = std::make_shared<ProcessChild>(ProcessSupervisor::shared(), channel);
    channel->roomAgain = [weak = std::weak_ptr(child)](ProcessChannel::Stream stream) {
      reactor().post([weak, stream] {
        if (const auto strong = weak.lock()) strong->readAgain(stream);
      });
    };
    const auto result = child->launch(options);
    Launched answer = std::unexpected(result ? ProcessError{} : result.error());
    if (result) answer = std::make_shared<Impl>(std::move(channel), child, child->id());
    child.reset();
    promise.set_value(std::move(answer));
  });
  auto answer = launched.get();
  if (!answer) return std::unexpected(std::move(answer.error()));
  return std::shared_ptr<Process>(new Process(std::move(*answer)));
}

void Process::write(std::string bytes) {
  if (!impl_->channel->write(std::move(bytes))) return;
  impl_->onReactor([](ProcessChild& child) { child.takeInput(); });
}

std::size_t Process::unsentBytes() const {
  return impl_->channel->unsentBytes();
}

void Process::closeInput() {
  if (!impl_->channel->closeInput()) return;
  impl_->onReactor([](ProcessChild& child) { child.takeInput(); });
}

void Process::pauseReading() {
  impl_->onReactor([](ProcessChild& child) { child.setPaused(true); });
}

void Process::resumeReading() {
  impl_->onReactor([](ProcessChild& child) { child.setPaused(false); });
}

void Process::terminate(std::chrono::milliseconds grace) {
  impl_->onReactor([grace](ProcessChild& child) { child.terminate(grace); });
}

void Process::stop(std::chrono::milliseconds grace, std::chrono::milliseconds patience) {
  if (!impl_->channel->stop()) return;
  impl_->onReactor([grace, patience](ProcessChild& child) { child.stop(grace, patience); });
}

bool Process::isRunning() const {
  return impl_->channel->isRunning();
}
std::int64_t Process::processID() const {
  return impl_->id;
}

bool Process::waitForAll(std::chrono::milliseconds limit) {
  return ProcessSupervisor::waitForAll(limit);
}

}  // namespace vantrell
