#include "runtimes/acp/terminal_manager.h"

#include <fmt/format.h>

#include "platform/text/tail_buffer.h"
#include "platform/text/text.h"
#include "platform/values/json_objects.h"
#include "platform/values/uuid.h"

namespace vantrell {

namespace {
constexpr std::int64_t defaultOutputByteLimit = 1'000'000;
/// What a runtime may ask to be kept of one terminal; "truncated" tells of what was not.
constexpr std::int64_t largestOutputByteLimit = 64 << 20;
}  // namespace

/// One command and the tail of what it has written.
class ManagedTerminal : public std::enable_shared_from_this<ManagedTerminal> {
 public:
  explicit ManagedTerminal(std::size_t outputByteLimit) : output_(outputByteLimit) {}

  std::optional<ProcessError> launch(ProcessOptions options, SerialQueue queue) {
    Process::Handlers handlers;
    handlers.onOutput = [weak = weak_from_this()](std::string_view bytes) {
      if (const auto self = weak.lock()) self->output_.append(bytes);
    };
    handlers.onExit = [weak = weak_from_this()](ExitStatus status) {
      if (const auto self = weak.lock()) self->ended(status);
    };
    auto started = Process::start(std::move(options), std::move(queue), std::move(handlers));
    if (!started) return std::move(started.error());
    process_ = std::move(*started);
    return std::nullopt;
  }

  JsonObject snapshot() const {
    Json exitStatus;
    if (exitCode_) exitStatus = exitResult();
    JsonObject answer;
    answer.set("output", text::repaired(output_.contents()));  // large: moved, not copied
    answer.set("truncated", output_.wasTruncated());
    answer.set("exitStatus", std::move(exitStatus));
    return answer;
  }

  void kill() {
    if (!exitCode_) process_->terminate();
  }

  void waitForExit(TerminalManager::Reply reply) {
    if (exitCode_) return reply(exitResult());
    waiters_.push_back(std::move(reply));
  }

  /// Ends the command; waiters learn that the terminal is gone by a null exit code.
  void release() {
    process_->stop();
    answerWaiters();
  }

 private:
  void ended(ExitStatus status) {
    // A command killed by a signal reports the number as its code: the protocol's "signal" stays
    // null.
    exitCode_ = status.signal != 0 ? status.signal : status.status;
    answerWaiters();
  }

  JsonObject exitResult() const {
    return {{"exitCode", exitCode_ ? Json(*exitCode_) : Json()}, {"signal", nullptr}};
  }

  void answerWaiters() {
    for (auto& reply : std::exchange(waiters_, {})) reply(exitResult());
  }

  TailBuffer output_;
  std::shared_ptr<Process> process_;
  std::optional<int> exitCode_;
  std::vector<TerminalManager::Reply> waiters_;
};

TerminalManager::TerminalManager(Environment environment, SerialQueue queue)
    : environment_(std::move(environment)), queue_(std::move(queue)) {}

TerminalManager::~TerminalManager() = default;

TerminalManager::Answer TerminalManager::create(const JsonObject& params) {
  const std::string* command = json::text(params, "command");
  if (!command || command->empty()) {
    return std::unexpected(AgentError("terminal/create is missing command"));
  }

  ProcessOptions options;
  options.executable = "/usr/bin/env";  // finds the command through PATH
  options.arguments = {*command};
  if (const Json::Array* arguments = json::array(params, "args")) {
    // A list that is not all text counts as absent: a command without some of its arguments could
    // do another thing than was asked.
    if (std::ranges::all_of(*arguments, [](const Json& each) { return each.asText(); })) {
      for (const Json& each : *arguments) options.arguments.push_back(*each.asText());
    }
  }
  options.workingFolder = json::textOr(params, "cwd", "");
  options.environment = environment_;
  for (const JsonObject* variable : json::objects(params, "env")) {
    const std::string* name = json::text(*variable, "name");
    const std::string* value = json::text(*variable, "value");
    if (name && value) options.environment[*name] = *value;
  }
  // A command has no one to type for it, and must not read what the user types elsewhere.
  options.standardInput = ProcessOptions::Input::null;
  options.mergeErrorIntoOutput = true;
  // What a command leaves running in the background lives until the terminal is released.
  options.endGroupWithLeader = false;

  const std::int64_t limit =
      json::integer(params, "outputByteLimit").value_or(defaultOutputByteLimit);
  const auto terminal = std::make_shared<ManagedTerminal>(
      static_cast<std::size_t>(std::clamp<std::int64_t>(limit, 0, largestOutputByteLimit)));
  if (const auto error = terminal->launch(std::move(options), queue_)) {
    return std::unexpected(
        AgentError(fmt::format("Could not run {}: {}", *command, error->description)));
  }
  const std::string id = Uuid::random().text();
  terminals_.emplace(id, terminal);
  return JsonObject{{"terminalId", id}};
}

bool TerminalManager::handle(std::string_view method, const JsonObject& params, Reply reply) {
  if (method == "terminal/create") {
    reply(create(params));
    return true;
  }
  const bool isKill = method == "terminal/kill";
  const bool isRelease = method == "terminal/release";
  const bool isOutput = method == "terminal/output";
  if (!isKill && !isRelease && !isOutput && method != "terminal/wait_for_exit") return false;

  const std::string* id = json::text(params, "terminalId");
  const auto found = id ? terminals_.find(*id) : terminals_.end();
  if (found == terminals_.end()) {
    reply(std::unexpected(
        AgentError(id ? "Unknown terminal: " + *id : "Terminal request is missing terminalId")));
    return true;
  }
  const auto terminal = found->second;
  if (isOutput) {
    reply(terminal->snapshot());
  } else if (isKill) {  // it stays known and its output readable
    terminal->kill();
    reply(JsonObject{});
  } else if (isRelease) {
    terminals_.erase(found);
    terminal->release();
    reply(JsonObject{});
  } else {
    terminal->waitForExit(std::move(reply));
  }
  return true;
}

void TerminalManager::releaseAll() {
  for (auto& [id, terminal] : std::exchange(terminals_, {})) terminal->release();
}

}  // namespace vantrell
