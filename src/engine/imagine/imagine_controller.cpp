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

ImagineController::ImagineController(EngineCore& core, InstalledRuntimes& runtimes)
    : main_(core.main),
      settings_(core.settings),
      executions_(core.executions),
      runtimes_(runtimes),
      changes_(core.changes),
      ports_(core.ports),
      store_(
          core.ports.imagine.supportFolder, [&main = core.main] { return main.now(); },
          [&changes = core.changes](const std::string& text) {
            changes.announce({.kind = Change::Kind::noticeRaised, .text = text});
          }) {}

ImagineController::~ImagineController() {
  // Nobody is left to list what they would give.
  stopCopies_.request_stop();
  endClient();
}

void ImagineController::load() {
  items_ = store_.load();
}

void ImagineController::announce() {
  changes_.announce({.kind = Change::Kind::imagineChanged});
}

// ---- a prompt, from the user to its end ---------------------------------------------------------

void ImagineController::generateImagine(const std::string& prompt, ImagineKind kind) {
  const std::string trimmed(text::trimmed(prompt));
  if (trimmed.empty()) return;
  if (!ports_.connector(provider).isAvailable({})) {
    runtimes_.noteMissing(provider);
    return executions_.showError("Install and log in to Grok Build before using Imagine.");
  }
  progress_ = fmt::format("Preparing {} generation…", rawText(kind));
  const bool isUsable = client_ && (isStarting_ || isSessionOpen_);
  const bool isReplaced = !isUsable || state_ != ConnectionState::ready();
  if (!isReplaced && isPromptOpen_) {
    // The agent is still ending what was cancelled, and takes one prompt at a time. What it names
    // until then belongs to that one.
    due_ = Wish{trimmed, kind};
    state_ = ConnectionState::working();
    return waitForStoppedClient();
  }
  begin({trimmed, kind});
  if (isReplaced) return startClient();
  if (!isStarting_) return performImagineSend();
  // Cancelled while it was connecting; that goes on.
  state_ = ConnectionState::connecting();
  waitForStoppedClient();
}

void ImagineController::begin(Wish wish) {
  currentImaginePrompt_ = std::move(wish.prompt);
  currentImagineKind_ = wish.kind;
  answer_.clear();
  openLine_.clear();
  copyError_.clear();
  seenImaginePaths_.clear();
  wasCancelled_ = false;
}

void ImagineController::waitForStoppedClient() {
  patience_ = main_.after(stopPatience, weakly(this, [](ImagineController& self) {
                            if (auto due = std::exchange(self.due_, {})) {
                              self.begin(*std::move(due));
                            }
                            self.startClient();
                          }));
  announce();
}

template <typename Body>
auto ImagineController::whileServing(Body body) {
  return weakly(
      this, [client = std::weak_ptr(client_), body](ImagineController& self, auto&&... arguments) {
        const auto serving = client.lock();
        if (!serving || self.client_ != serving) return;
        body(self, std::forward<decltype(arguments)>(arguments)...);
      });
}

void ImagineController::startClient() {
  executions_.closeImagineQuestion();
  endClient();
  state_ = ConnectionState::connecting();
  const auto library = store_.directory();
  if (!library) {
    state_ = ConnectionState::failed("Could not create the Imagine library.");
    return announce();
  }
  const ProviderConnector& connector = ports_.connector(provider);
  client_ = connector.makeClient({.workspacePath = *library,
                                  .workspaceName = "Imagine",
                                  .permissionMode = settings_.permissionMode()});
  if (!client_) return fail(connector.setupHint);
  announce();
  setCallbacks();
  isStarting_ = true;
  client_->start(std::nullopt, whileServing([](ImagineController& self, const StartResult& result) {
                   self.startCompleted(result);
                 }));
}

void ImagineController::setCallbacks() {
  client_->onSessionUpdate = whileServing(
      [](ImagineController& self, const JsonObject& update) { self.handleImagine(update); });
  client_->onPermissionRequest =
      whileServing([](ImagineController& self, PermissionRequest request) {
        self.executions_.openImagineQuestion(std::move(request));
      });
  client_->onLog = whileServing([](ImagineController& self, std::string_view text) {
    self.executions_.appendToShownLog(text);
  });
  // A question that was open stays so until the user has answered it.
  client_->onUnexpectedTermination =
      whileServing([](ImagineController& self, const std::string& text) {
        self.endClient();
        self.state_ = ConnectionState::failed(text);
        self.executions_.showError(text);
        self.announce();
      });
}

void ImagineController::endClient() {
  const auto client = std::exchange(client_, nullptr);
  isStarting_ = isSessionOpen_ = isPromptOpen_ = false;
  due_.reset();
  patience_.cancel();
  if (client) client->stop();
}

void ImagineController::startCompleted(const StartResult& result) {
  isStarting_ = false;
  patience_.cancel();
  // The client stays until the next prompt: how its process ended, if it did, is still to come.
  if (!result) return fail(result.error().localizedDescription());
  isSessionOpen_ = true;
  state_ = ConnectionState::ready();
  if (wasCancelled_) return announce();
  performImagineSend();
}

void ImagineController::performImagineSend() {
  if (!client_) return;
  state_ = ConnectionState::working();
  const bool isVideo = currentImagineKind_ == ImagineKind::video;
  progress_ = isVideo ? "Grok is generating a video…" : "Grok is generating an image…";
  isPromptOpen_ = true;
  announce();
  client_->sendPrompt(
      fmt::format("{} {}", isVideo ? "/imagine-video" : "/imagine", currentImaginePrompt_),
      whileServing([](ImagineController& self, const PromptResult& result) {
        self.promptCompleted(result);
      }));
}

void ImagineController::promptCompleted(const PromptResult& result) {
  isPromptOpen_ = false;
  patience_.cancel();
  if (auto due = std::exchange(due_, {})) {
    begin(*std::move(due));
    // Some agents end as a whole when they are told to stop.
    const bool isGone = !result && result.error().isDisconnection();
    return isGone ? startClient() : performImagineSend();
  }
  // The user has been told that it was stopped, and how it ended is no news.
  if (wasCancelled_) return announce();
  if (!result) {
    progress_ = "Generation failed";
    const std::string& description = result.error().localizedDescription();
    fail(description);
    return ports_.sendRemoteImagineEvent("imagine_attention",
                                         executions_.mirror().errorMessage.value_or(description));
  }
  state_ = ConnectionState::ready();
  if (progress_.contains("generating")) progress_ = "Generation finished";
  announce();
  ports_.sendRemoteImagineEvent("imagine_completed",
                                fmt::format("Your {} is ready.", rawText(currentImagineKind_)));
}

void ImagineController::fail(const std::string& description) {
  state_ = ConnectionState::failed(description);
  executions_.showError(friendlyError(description, provider));
  announce();
}

void ImagineController::cancelImagine() {
  if (client_) client_->cancel();
  wasCancelled_ = true;
  due_.reset();
  patience_.cancel();
  state_ = ConnectionState::ready();
  progress_ = "Stopped";
  executions_.closeImagineQuestion();
  announce();
}

void ImagineController::respondToPermission(std::int64_t requestID, const std::string& optionID) {
  if (client_) client_->respondToPermission(requestID, optionID);
}

void ImagineController::reset() {
  executions_.closeImagineQuestion();
  endClient();
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
  Executor& background =
      ports_.imagine.background ? *ports_.imagine.background : static_cast<Executor&>(main_);
  for (; copiesUnderWay_ < copiesAtOnce && !copiesWaiting_.empty(); copiesWaiting_.pop_front()) {
    ++copiesUnderWay_;
    auto done =
        weakly(this, [](ImagineController& self, files::Result<std::optional<ImagineItem>> item) {
          self.imported(std::move(item));
        });
    background.post([&main = main_, done = std::move(done), folder = ports_.imagine.supportFolder,
                     copy = std::move(copiesWaiting_.front()), now = main_.now(),
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
  changes_.announce({.kind = Change::Kind::saveFailed, .text = saved.error().description});
}

}  // namespace vantrell
