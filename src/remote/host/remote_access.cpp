#include "remote/host/remote_access.h"

#include <utility>

#include "engine/core/settings.h"
#include "platform/sockets/own_address.h"
#include "platform/storage/user_defaults.h"
#include "remote/protocol/remote_pairing.h"

namespace vantrell {

namespace {
constexpr std::string_view advertisedHostKey = "remoteAdvertisedHost.v1";
}

RemoteAccess::RemoteAccess(Dependencies dependencies)
    : core_(std::move(dependencies)),
      server_(core_.sources.main, core_.pool, core_.server),
      snapshots_(std::make_shared<RemoteSnapshots>(RemoteSnapshots::Dependencies{
          .sources = core_.sources,
          .changes = core_.changes,
          .pool = core_.pool,
          .reader = core_.reader,
          .send =
              [this](RemoteSnapshotText text) {
                server_.update([text = std::move(text)] { return text.joined(); });
              },
          .log = [this](const std::string& text) { core_.changes.notice(text); }})),
      handler_(std::make_shared<RemoteCommandHandler>(
          RemoteCommandHandler::Dependencies{.main = core_.sources.main,
                                             .pool = core_.pool,
                                             .output = server_,
                                             .engine = core_.engine,
                                             .sendSnapshot = [this] { snapshots_->sendNow(); },
                                             .requestUpdate = core_.requestUpdate,
                                             .decideUpdate = core_.decideUpdate})) {
  server_.onStateChange = [this](const RemoteHostState& state) {
    state_.host = state;
    changed();
  };
  server_.onRelayStateChange = [this](const RemoteRelayState& state) {
    state_.relay = state;
    changed();
  };
  server_.onClientCountChange = [this](std::int64_t count) {
    state_.clientCount = count;
    changed();
  };
  server_.onPairingCodeChange = [this](std::optional<std::string> code, auto) {
    state_.pairingCode = std::move(code);
    changed();
  };
  server_.onMessage = [this](const RemoteEnvelope& envelope) { handler_->handle(envelope); };
}

RemoteAccess::~RemoteAccess() {
  snapshots_->stop();
  server_.stop();
  server_.onStateChange = nullptr;
  server_.onRelayStateChange = nullptr;
  server_.onClientCountChange = nullptr;
  server_.onPairingCodeChange = nullptr;
  server_.onMessage = nullptr;
}

void RemoteAccess::changed() {
  core_.changes.mark(topics::remoteAccess);
}

bool RemoteAccess::isOn() const {
  return isServing_ && core_.settings.isRemoteHostEnabled();
}

void RemoteAccess::configureRemoteHost() {
  isServing_ = true;
  refreshRemoteRoutes();
  if (isOn()) state_.host = {.phase = RemoteHostState::Phase::starting};
  whenKeyIsKnown([this] { startRemoteHost(); });
}

void RemoteAccess::whenKeyIsKnown(std::function<void()> then) {
  if (keyData_) return then();
  waiting_.push_back(std::move(then));
  if (std::exchange(isLoading_, true)) return;
  RemoteHostConfiguration::loadOrCreateSecret(
      core_.places, [this, life = std::weak_ptr(life_)](RemoteHostConfiguration::Key key) {
        if (!life.expired()) keyKnown(std::move(key));
      });
}

void RemoteAccess::keyKnown(RemoteHostConfiguration::Key key) {
  isLoading_ = false;
  keyData_ = std::move(key.keyData);
  keyProblem_ = std::move(key.problem);
  if (!keyProblem_.empty()) core_.changes.notice(keyProblem_);
  changed();
  for (const auto& then : std::exchange(waiting_, {})) then();
}

std::string RemoteAccess::remoteAdvertisedHost() const {
  const auto stored = core_.places.defaults.text(advertisedHostKey);
  return stored && !stored->empty() ? *stored : RemoteHostConfiguration::suggestedAddress();
}

std::optional<std::string> RemoteAccess::remotePairingURL() const {
  if (!keyData_) return std::nullopt;
  const auto& relay = core_.server.relayURL;
  return makePairingLink({.host = remoteAdvertisedHost(),
                          .port = core_.port,
                          .keyData = *keyData_,
                          .relayURL = relay ? relay->text() : std::string(),
                          .name = nameOfThisComputer()});
}

void RemoteAccess::startRemoteHost() {
  if (!isOn() || !keyData_) return;
  server_.start(*keyData_, *remotePairingURL(), core_.port);
  snapshots_->start();
  snapshots_->sendNow();
}

Result<> RemoteAccess::setRemoteEnabled(bool isEnabled) {
  auto stored = core_.settings.recordRemoteHost(isEnabled);
  changed();
  if (!isServing_) return stored;
  if (!isEnabled) {
    snapshots_->stop();
    server_.stop();
  } else {
    state_.host = {.phase = RemoteHostState::Phase::starting};
    whenKeyIsKnown([this] { startRemoteHost(); });
  }
  return stored;
}

void RemoteAccess::rotateRemoteAccessKey(std::function<void()> done) {
  server_.stop();
  if (isOn()) state_.host = {.phase = RemoteHostState::Phase::starting};
  changed();
  keyData_.reset();
  if (done) waiting_.push_back(std::move(done));
  isLoading_ = true;
  RemoteHostConfiguration::rotateSecret(
      core_.places, [this, life = std::weak_ptr(life_)](RemoteHostConfiguration::Key key) {
        if (life.expired()) return;
        keyKnown(std::move(key));
        startRemoteHost();
      });
}

void RemoteAccess::refreshRemoteRoutes() {
  const auto address = RemoteHostConfiguration::suggestedAddress();
  if (core_.places.defaults.text(advertisedHostKey) == address) return;
  // Where that cannot be stored, the address is looked for each time.
  std::ignore = core_.settings.store(advertisedHostKey, address);
  changed();
  restart();
}

void RemoteAccess::restart() {
  if (!isOn() || !keyData_) return;
  server_.stop();
  startRemoteHost();
}

void RemoteAccess::sendRemoteTaskEvent(TaskEventKind kind, std::string_view message,
                                       const ThreadExecutionKey& key) {
  if (isOn()) handler_->taskEvent(kind, message, key);
}

void RemoteAccess::sendRemoteImagineEvent(ImagineEventKind kind, std::string_view message) {
  if (isOn()) handler_->imagineEvent(kind, message);
}

}  // namespace vantrell
