#include "engine/imagine_desk.h"

#include <fmt/format.h>

#include "engine/friendly_error.h"
#include "engine/imagine_media_extractor.h"
#include "platform/text.h"
#include "platform/weakly.h"

namespace vantrell {

namespace {
constexpr AgentProvider provider = AgentProvider::grok;
}

ImagineDesk::ImagineDesk(EngineCore& core, RuntimeDesk& runtimes)
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

ImagineDesk::~ImagineDesk() {
  endClient();
}

void ImagineDesk::load() {
  items_ = store_.load();
}

std::string_view ImagineDesk::kindWord() const {
  return rawText(currentImagineKind_);
}

void ImagineDesk::announce() {
  changes_.announce({.kind = Change::Kind::imagineChanged});
}

// ---- a prompt, from the user to its end ---------------------------------------------------------

void ImagineDesk::generateImagine(const std::string& prompt, ImagineKind kind) {
  const auto trimmed = text::trimmed(prompt);
  if (trimmed.empty()) return;
  if (!ports_.connector(provider).isAvailable({})) {
    runtimes_.noteMissing(provider);
    return executions_.showError("Install and log in to Grok Build before using Imagine.");
  }
  currentImaginePrompt_ = trimmed;
  currentImagineKind_ = kind;
  progress_ = fmt::format("Preparing {} generation…", kindWord());
  answer_.clear();
  seenImaginePaths_.clear();
  wasCancelled_ = false;
  const bool isUsable = client_ && (isStarting_ || isSessionOpen_);
  if (!isUsable || state_ != ConnectionState::ready()) return startClient();
  if (isStarting_) {
    // Cancelled while it was connecting; that goes on.
    state_ = ConnectionState::connecting();
    return announce();
  }
  if (isPromptOpen_) {
    // The agent is still ending what was cancelled, and takes one prompt at a time.
    state_ = ConnectionState::working();
    isSendDue_ = true;
    return announce();
  }
  performImagineSend();
}

template <typename Body>
auto ImagineDesk::whileServing(Body body) {
  return weakly(this,
                [client = std::weak_ptr(client_), body](ImagineDesk& self, auto&&... arguments) {
                  const auto serving = client.lock();
                  if (!serving || self.client_ != serving) return;
                  body(self, std::forward<decltype(arguments)>(arguments)...);
                });
}

void ImagineDesk::startClient() {
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
  client_->start(std::nullopt, whileServing([](ImagineDesk& self, const StartResult& result) {
                   self.startCompleted(result);
                 }));
}

void ImagineDesk::setCallbacks() {
  client_->onSessionUpdate =
      whileServing([](ImagineDesk& self, const JsonObject& update) { self.handleImagine(update); });
  client_->onPermissionRequest = whileServing([](ImagineDesk& self, PermissionRequest request) {
    self.executions_.openImagineQuestion(std::move(request));
  });
  client_->onLog = whileServing(
      [](ImagineDesk& self, std::string_view text) { self.executions_.appendToShownLog(text); });
  // A question that was open stays so until the user has answered it.
  client_->onUnexpectedTermination = whileServing([](ImagineDesk& self, const std::string& text) {
    self.endClient();
    self.state_ = ConnectionState::failed(text);
    self.executions_.showError(text);
    self.announce();
  });
}

void ImagineDesk::endClient() {
  const auto client = std::exchange(client_, nullptr);
  isStarting_ = isSessionOpen_ = isPromptOpen_ = isSendDue_ = false;
  if (client) client->stop();
}

void ImagineDesk::startCompleted(const StartResult& result) {
  isStarting_ = false;
  // The client stays until the next prompt: how its process ended, if it did, is still to come.
  if (!result) return fail(result.error().localizedDescription());
  isSessionOpen_ = true;
  state_ = ConnectionState::ready();
  if (wasCancelled_) return announce();
  performImagineSend();
}

void ImagineDesk::performImagineSend() {
  if (!client_) return;
  state_ = ConnectionState::working();
  const bool isVideo = currentImagineKind_ == ImagineKind::video;
  progress_ = isVideo ? "Grok is generating a video…" : "Grok is generating an image…";
  isPromptOpen_ = true;
  announce();
  client_->sendPrompt(
      fmt::format("{} {}", isVideo ? "/imagine-video" : "/imagine", currentImaginePrompt_),
      whileServing(
          [](ImagineDesk& self, const PromptResult& result) { self.promptCompleted(result); }));
}

void ImagineDesk::promptCompleted(const PromptResult& result) {
  isPromptOpen_ = false;
  if (std::exchange(isSendDue_, false)) return performImagineSend();
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
  ports_.sendRemoteImagineEvent("imagine_completed", fmt::format("Your {} is ready.", kindWord()));
}

void ImagineDesk::fail(const std::string& description) {
  state_ = ConnectionState::failed(description);
  executions_.showError(friendlyError(description, provider));
  announce();
}

void ImagineDesk::cancelImagine() {
  if (client_) client_->cancel();
  wasCancelled_ = true;
  isSendDue_ = false;
  state_ = ConnectionState::ready();
  progress_ = "Stopped";
  executions_.closeImagineQuestion();
  announce();
}

void ImagineDesk::respondToPermission(std::int64_t requestID, const std::string& optionID) {
  if (client_) client_->respondToPermission(requestID, optionID);
}

void ImagineDesk::reset() {
  executions_.closeImagineQuestion();
  endClient();
  state_ = ConnectionState::idle();
  progress_.clear();
  announce();
}

// ---- what the agent reports ---------------------------------------------------------------------

void ImagineDesk::handleImagine(const JsonObject& update) {
  const std::string kind = json::textOr(update, "sessionUpdate", "");
  if (kind == "agent_message_chunk") {
    const JsonObject* content = json::object(update, "content");
    if (const std::string* said = content ? json::text(*content, "text") : nullptr) {
      progress_ = text::trimmed(*said);
      if (answer_.size() < keptOfAnswer) answer_ += *said;
      announce();
    }
  } else if (kind == "tool_call" || kind == "tool_call_update") {
    const std::string* title = json::text(update, "title");
    if (title && !title->empty()) {
      progress_ = *title;
      announce();
    }
  }
  for (const auto& path : ImagineMediaExtractor::paths(update)) {
    if (seenImaginePaths_.insert(path).second) importLater(path);
  }
}

void ImagineDesk::importLater(const std::string& path) {
  ++importsUnderWay_;
  auto done = weakly(this, [](ImagineDesk& self, std::optional<ImagineItem> item) {
    self.imported(std::move(item));
  });
  Executor& background =
      ports_.imagine.background ? *ports_.imagine.background : static_cast<Executor&>(main_);
  background.post([&main = main_, done = std::move(done), folder = ports_.imagine.supportFolder,
                   path, prompt = currentImaginePrompt_, now = main_.now()]() mutable {
    auto item = ImagineStore::importMedia(folder, path, prompt, now);
    main.post([done = std::move(done), item = std::move(item).value_or(std::nullopt)]() mutable {
      done(std::move(item));
    });
  });
}

void ImagineDesk::imported(std::optional<ImagineItem> item) {
  --importsUnderWay_;
  // What cannot be copied is passed over.
  if (!item) return announce();
  progress_ = item->kind == ImagineKind::video ? "Video ready" : "Image ready";
  items_.insert(items_.begin(), *std::move(item));
  save();
  announce();
}

void ImagineDesk::deleteImagineItem(const Uuid& id) {
  const auto item = std::ranges::find(items_, id, &ImagineItem::id);
  if (item == items_.end()) return;
  static_cast<void>(files::moveToTrash(item->localPath));
  std::erase_if(items_, [&](const ImagineItem& each) { return each.id == id; });
  save();
  announce();
}

void ImagineDesk::save() {
  const auto saved = store_.save(items_);
  if (saved) return;
  changes_.announce({.kind = Change::Kind::saveFailed, .text = saved.error().description});
}

}  // namespace vantrell
