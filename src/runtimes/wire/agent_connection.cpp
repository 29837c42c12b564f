#include "runtimes/wire/agent_connection.h"

#include <fmt/format.h>

#include "platform/files/files.h"
#include "platform/text/text.h"

namespace vantrell {

namespace {

/// Some runtimes colour what they write to standard error (Codex does), terminal or not. The codes
/// are noise wherever the text is shown.
std::string withoutColors(const std::string& text) {
  std::string plain;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text.compare(at, 2, "\x1b[") != 0) {
      plain += text[at];
      continue;
    }
    // The parameters end with a letter or one of a few signs.
    at += 2;
    while (at < text.size() && (text[at] < '@' || text[at] > '~')) ++at;
  }
  return plain;
}

}  // namespace

AgentConnection::~AgentConnection() = default;

void AgentConnection::start(std::optional<std::string> existingSessionID,
                            AgentClient::StartCompletion completion) {
  if (state_ != State::unused) return completion(std::unexpected(notConnected()));
  if (auto error = launch(processOptions(existingSessionID))) {
    return completion(std::unexpected(std::move(*error)));
  }
  initialize(std::move(existingSessionID), std::move(completion));
}

void AgentConnection::initialize(std::optional<std::string> existingSessionID,
                                 AgentClient::StartCompletion completion) {
  state_ = State::open;
  startCompletion_ = std::move(completion);
  begin(std::move(existingSessionID));
}

void AgentConnection::finishStart(std::expected<AgentStartResult, AgentError> result) {
  if (const auto completion = std::exchange(startCompletion_, {})) completion(std::move(result));
}

std::optional<AgentError> AgentConnection::launch(ProcessOptions options) {
  if (!files::isExecutable(options.executable)) return missingProgram();
  // The process may outlive this object by the moment that its end takes.
  const auto weak = weak_from_this();
  JsonLineProcess::Handlers handlers;
  handlers.onMessage = [weak](JsonObject message, std::size_t bytes) {
    if (const auto self = weak.lock()) self->handle(std::move(message), bytes);
  };
  handlers.onOtherLine = [weak](std::string_view line) {
    if (const auto self = weak.lock()) self->handleOtherLine(line);
  };
  handlers.onReadHandled = [weak] {
    if (const auto self = weak.lock()) self->handOutUpdates();
  };
  handlers.onErrorText = [weak](std::string text) {
    if (const auto self = weak.lock()) self->log(std::move(text));
  };
  handlers.onEnd = [weak](const JsonLineProcess::End& end) {
    if (const auto self = weak.lock()) self->ended(end);
  };
  const std::string folder = options.workingFolder;
  auto process = JsonLineProcess::start(std::move(options), channel_.queue, channel_.mailbox,
                                        std::move(handlers));
  if (!process) {
    auto& [step, number, description] = process.error();
    // Without its name the folder's error reads as if the program were missing.
    return systemFailure(step == ProcessError::Step::enterFolder ? folder + ": " + description
                                                                 : std::move(description));
  }
  process_ = std::move(*process);
  return std::nullopt;
}

void AgentConnection::send(const JsonObject& message) {
  if (process_) process_->send(message);
}

void AgentConnection::gatherUpdate(JsonObject update, std::size_t bytes) {
  updates_.push_back(std::move(update));
  updateBytes_ += bytes;
}

void AgentConnection::handOutUpdates() {
  if (updates_.empty()) return;
  channel_.tell(
      [queue = channel_.queue, updates = std::make_shared<std::vector<JsonObject>>(
                                   std::exchange(updates_, {}))](AgentClient& client) mutable {
        for (const auto& update : *updates) {
          if (client.onSessionUpdate) client.onSessionUpdate(update);
        }
        // Their memory goes back to where it was taken: freed here, it would make this queue wait
        // for the allocations of the next updates, and those for this queue.
        queue.post([updates = std::move(updates)] {});
      },
      std::exchange(updateBytes_, 0));
}

void AgentConnection::later(Duration delay, std::function<void()> work) const {
  channel_.after ? channel_.after(delay, std::move(work)) : work();
}

void AgentConnection::log(std::string text) {
  const std::size_t bytes = text.size();
  tell(bytes, &AgentClient::onLog, std::move(text));
}

void AgentConnection::ask(PermissionRequest request, std::size_t bytes) {
  questions_.push_back({std::move(request), bytes});
  if (questions_.size() == 1) deliverFirstQuestion();
}

void AgentConnection::questionEnded(std::int64_t id) {
  const auto found =
      std::ranges::find(questions_, id, [](const Question& each) { return each.request.id; });
  if (found == questions_.end()) return;
  const bool wasShown = found == questions_.begin();
  questions_.erase(found);
  if (wasShown && !questions_.empty()) deliverFirstQuestion();
}

void AgentConnection::questionWithdrawn(std::int64_t id) {
  const bool wasShown = !questions_.empty() && questions_.front().request.id == id;
  if (wasShown) tell(&AgentClient::onPermissionWithdrawn, id);
  questionEnded(id);
}

void AgentConnection::deliverFirstQuestion() {
  const auto& [request, bytes] = questions_.front();
  tell(bytes, &AgentClient::onPermissionRequest, request);
}

void AgentConnection::stop() {
  const auto ending =
      isAtWork() ? JsonLineProcess::Ending::prompt : JsonLineProcess::Ending::gentle;
  state_ = State::ended;
  allQuestionsEnded();
  release();
  if (process_) process_->stop(ending);
  process_.reset();
  failPending(disconnected(endText(runtimeName() + " stopped.")));
}

void AgentConnection::ended(const JsonLineProcess::End& end) {
  state_ = State::ended;
  allQuestionsEnded();
  release();
  const std::string plain = withoutColors(end.errorText);
  const std::string_view words = text::trimmed(plain);
  // One number for both kinds of end, a signal's number being the status of what it killed.
  const auto& [status, signal] = end.status;
  std::string how = !words.empty()       ? std::string(words)
                    : !end.cause.empty() ? end.cause
                                         : fmt::format("{} exited with status {}.", runtimeName(),
                                                       signal != 0 ? signal : status);
  if (words.empty() && !end.cause.empty()) {
    failPending(systemFailure(end.cause));
  } else {
    // A session that did not open has no other place where the user could read why.
    failPending(disconnected(startCompletion_ && !words.empty() ? how : endText(how)));
  }
  tell(&AgentClient::onUnexpectedTermination, std::move(how));
}

}  // namespace vantrell
