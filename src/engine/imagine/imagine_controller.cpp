#include "engine/imagine/imagine_controller.h"

#include <fmt/format.h>

#include "engine/core/friendly_error.h"
#include "engine/imagine/imagine_media_extractor.h"
#include "platform/queues/weakly.h"
#include "platform/text/text.h"

namespace vantrell {

namespace {

constexpr AgentProvider provider = AgentProvider::grok;
/// Bytes of a line that are kept for a path that comes in pieces; no path is longer.
constexpr std::size_t keptOfLine = 4096;

}  // namespace

ImagineController::ImagineController(Dependencies dependencies)
    : core_(std::move(dependencies)),
      session_(std::make_shared<AgentSession>(core_.main)),
      store_(
          core_.supportFolder, [&main = core_.main] { return main.now(); },
          [&changes = core_.changes](const std::string& text) { changes.notice(text); }) {
  session_->setListener(this);
}

ImagineController::~ImagineController() {
  // Nothing is left to list what they would give.
  stopCopies_.request_stop();
  session_->setListener(nullptr);
  session_->end();
}

void ImagineController::load() {
  items_ = store_.load();
}

/// What is shown of the generator, with its open question, changes together.
void ImagineController::announce() {
  core_.executions.setImagine({state_, session_->question()});
}

// ---- a prompt, from the user to its end ---------------------------------------------------------

Result<> ImagineController::generateImagine(const std::string& prompt, ImagineKind kind) {
  Request request{std::string(text::trimmed(prompt)), kind};
  if (request.prompt.empty()) return refuse("Say what the picture or film should show.");
  if (!core_.services.connector(provider).isAvailable({})) {
    core_.runtimes.noteMissing(provider);
    return refuse("Install and log in to Grok Build before using Imagine.");
  }
  progress_ = fmt::format("Preparing {} generation…", rawText(kind));
  const bool isUsable = session_->isStarting() || session_->isOpen();
  if (!isUsable || state_ != ConnectionState::ready()) {
    begin(std::move(request));
    startClient();
  } else if (session_->isOpen()) {
    sendPrompt(std::move(request));
  } else {
    // Cancelled while it was connecting, which goes on.
    begin(std::move(request));
    state_ = ConnectionState::connecting();
    startWait_ =
        core_.main.after(AgentSession::stopTimeout,
                         weakly(this, [](ImagineController& self) { self.startClient(); }));
    announce();
  }
  return {};
}

void ImagineController::begin(Request request) {
  currentImaginePrompt_ = std::move(request.prompt);
  currentImagineKind_ = request.kind;
  answer_.clear();
  openLine_.clear();
  copyError_.clear();
  seenImaginePaths_.clear();
  wasCancelled_ = false;
}

void ImagineController::chooseExecutable(std::optional<std::string> path) {
  if (path == executable_) return;
  executable_ = std::move(path);
  reset();
}

void ImagineController::startClient() {
  startWait_.cancel();
  session_->end();
  log_.clear();
  state_ = ConnectionState::connecting();
  const auto library = store_.directory();
  if (!library) return fail("Could not create the Imagine library.");
  const ProviderConnector& connector = core_.services.connector(provider);
  const auto client = connector.makeClient({.workspacePath = *library,
                                            .workspaceName = "Imagine",
                                            .permissionMode = core_.settings.permissionMode(),
                                            .executable = executable_});
  if (!client) return fail(connector.setupHint);
  announce();
  session_->start(client, std::nullopt, Duration::zero(),
                  weakly(this, [](ImagineController& self, const auto& result) {
                    self.startCompleted(result);
                  }));
}

void ImagineController::startCompleted(const std::optional<AgentSession::StartResult>& result) {
  startWait_.cancel();
  // The client stays until the next prompt: how its process ended, if it did, is still to come.
  if (!*result) return fail(result->error().localizedDescription());
  state_ = ConnectionState::ready();
  if (wasCancelled_) return announce();
  sendPrompt({currentImaginePrompt_, currentImagineKind_});
}

/// Behind a prompt that was cancelled it waits until the agent has ended that one; what the agent
/// names until then belongs to that one.
void ImagineController::sendPrompt(Request request) {
  state_ = ConnectionState::working();
  announce();
  session_->prompt(
      fmt::format("{} {}", request.kind == ImagineKind::video ? "/imagine-video" : "/imagine",
                  request.prompt),
      weakly(this,
             [request](ImagineController& self,
                       const std::optional<AgentSession::PromptResult>& result) {
               if (result) return self.promptCompleted(*result);
               self.begin(request);
               self.startClient();
             }),
      weakly(this, [request](ImagineController& self) {
        self.begin(request);
        self.progress_ = request.kind == ImagineKind::video ? "Grok is generating a video…"
                                                            : "Grok is generating an image…";
        self.announce();
      }));
}

void ImagineController::promptCompleted(const AgentSession::PromptResult& result) {
  if (!result) {
    progress_ = "Generation failed";
    const std::string& description = result.error().localizedDescription();
    fail(description);
    return core_.events.imagineEvent(ImagineEventKind::needsAttention,
                                     friendlyError(description, provider));
  }
  state_ = ConnectionState::ready();
  if (progress_.contains("generating")) progress_ = "Generation finished";
  core_.executions.clearError();
  announce();
  core_.events.imagineEvent(ImagineEventKind::completed,
                            fmt::format("Your {} is ready.", rawText(currentImagineKind_)));
}

void ImagineController::fail(const std::string& description) {
  state_ = ConnectionState::failed(description);
  core_.executions.showError(friendlyError(description, provider));
  announce();
}

void ImagineController::agentEnded(const std::string& text) {
  session_->end();
  state_ = ConnectionState::failed(text);
  core_.executions.showError(text);
  announce();
}

void ImagineController::cancelImagine() {
  session_->cancel();
  wasCancelled_ = true;
  startWait_.cancel();
  state_ = ConnectionState::ready();
  progress_ = "Stopped";
  announce();
}

bool ImagineController::respondToPermission(std::int64_t requestID, const std::string& optionID) {
  if (!session_->answer(requestID, optionID)) return false;
  announce();
  return true;
}

void ImagineController::reset() {
  startWait_.cancel();
  session_->end();
  state_ = ConnectionState::idle();
  progress_.clear();
  announce();
}

// ---- what the agent reports ---------------------------------------------------------------------

void ImagineController::handleImagine(const JsonObject& update) {
  const std::string kind = json::textOr(update, "sessionUpdate", "");
  const std::string* said = nullptr;
  if (kind == "agent_message_chunk") {
    const JsonObject* content = json::object(update, "content");
    said = content ? json::text(*content, "text") : nullptr;
  }
  const std::string* title =
      kind == "tool_call" || kind == "tool_call_update" ? json::text(update, "title") : nullptr;
  // The user has been told that it was stopped; files still count.
  if (!wasCancelled_ && (said || (title && !title->empty()))) {
    progress_ = said ? text::trimmed(*said) : *title;
    if (said && answer_.size() < keptOfAnswer) answer_ += *said;
    announce();
  }
  for (const auto& path : pathsIn(update, said)) {
    std::string source = ImagineStore::sourceOf(path);
    if (!seenImaginePaths_.insert(source).second) continue;
    copiesWaiting_.push_back({std::move(source), currentImaginePrompt_});
  }
  startCopies();
}

/// Those of the update, and those that end in it: an agent that streams its words sends a path in
/// pieces.
std::set<std::string> ImagineController::pathsIn(const JsonObject& update,
                                                 const std::string* said) {
  auto paths = ImagineMediaExtractor::paths(update);
  if (!said) return paths;
  if (!openLine_.empty()) {
    paths.merge(ImagineMediaExtractor::paths({{"text", openLine_ + *said}}));
  }
  openLine_ += *said;
  openLine_.erase(0, openLine_.find_last_of(ImagineMediaExtractor::endsOfPaths) + 1);
  if (openLine_.size() > keptOfLine) openLine_.erase(0, openLine_.size() - keptOfLine);
  return paths;
}

void ImagineController::startCopies() {
  for (; copiesUnderWay_ < copiesAtOnce && !copiesWaiting_.empty(); copiesWaiting_.pop_front()) {
    ++copiesUnderWay_;
    auto done =
        weakly(this, [](ImagineController& self, files::Result<std::optional<ImagineItem>> item) {
          self.imported(std::move(item));
        });
    core_.background.post([&main = core_.main, done = std::move(done), folder = core_.supportFolder,
                           copy = std::move(copiesWaiting_.front()), now = core_.main.now(),
                           stop = stopCopies_.get_token()]() mutable {
      auto item = ImagineStore::importMedia(folder, copy.path, copy.prompt, now, stop);
      main.post(
          [done = std::move(done), item = std::move(item)]() mutable { done(std::move(item)); });
    });
  }
}

void ImagineController::imported(files::Result<std::optional<ImagineItem>> item) {
  --copiesUnderWay_;
  startCopies();
  if (!item) copyError_ = item.error().description;
  // What cannot be copied is passed over.
  if (!item || !*item) return announce();
  progress_ = (*item)->kind == ImagineKind::video ? "Video ready" : "Image ready";
  items_.insert(items_.begin(), **std::move(item));
  save();
  announce();
}

void ImagineController::deleteImagineItem(const Uuid& id) {
  const auto item = std::ranges::find(items_, id, &ImagineItem::id);
  if (item == items_.end()) return;
  static_cast<void>(files::moveToTrash(item->localPath));
  std::erase_if(items_, [&](const ImagineItem& each) { return each.id == id; });
  save();
  announce();
}

void ImagineController::save() {
  const auto saved = store_.save(items_);
  if (saved) return;
  core_.changes.saveFailed(saved.error().description);
}

}  // namespace vantrell
