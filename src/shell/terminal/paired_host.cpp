#include "shell/terminal/paired_host.h"

#include <algorithm>
#include <fmt/format.h>

#include "app/user_state.h"
#include "platform/queues/weakly.h"
#include "remote/protocol/relay_setting.h"

namespace vantrell::shell {

using Kind = MacRemoteConnectionState::Kind;
using Type = RemoteMessageType;

namespace {

/// After the first snapshot, which may be the last one that the host had at hand when the client
/// came, the answer to the client's greeting follows.
constexpr std::chrono::milliseconds settlingTime{250};

/// The relay that looks codes up.
std::optional<Url> relayOfUser() {
  const auto defaults = UserFolders{}.orOwn().defaultsForReading();
  return defaults ? remoteRelayURL(**defaults) : std::nullopt;
}

/// Callbacks are copied before they are called, since they may replace themselves.
template <typename Callback, typename... Arguments>
void call(Callback callback, const Arguments&... arguments) {
  if (callback) callback(arguments...);
}

}  // namespace

PairedHost::PairedHost(CommandContext& context,
                       std::function<void(std::shared_ptr<PairedHost>)> then)
    : context_(context),
      secrets_(UserFolders{}.orOwn().secretStore(), context.main, context.pool()),
      store_(UserFolders{}.orOwn().support, secrets_),
      then_(std::move(then)) {}

void PairedHost::connect(CommandContext& context, std::optional<std::string> linkOrCode,
                         std::function<void(std::shared_ptr<PairedHost>)> then) {
  const std::shared_ptr<PairedHost> host(new PairedHost(context, std::move(then)));
  // What is to be called holds the host, and ends with the command.
  context.keep(std::shared_ptr<void>(nullptr, [host](void*) { host->close(); }));
  host->begin(std::move(linkOrCode));
}

void PairedHost::forget(CommandContext& context, std::function<void(bool)> then) {
  const std::shared_ptr<PairedHost> host(new PairedHost(context, nullptr));
  context.keep(host);
  host->store_.load([weak = std::weak_ptr(host), then = std::move(then)](const auto& link) {
    const auto alive = weak.lock();
    if (!alive) return;
    alive->store_.remove();
    // Behind the removal, in the same queue.
    alive->store_.load([then, wasPaired = link.has_value()](const auto&) { then(wasPaired); });
  });
}

void PairedHost::begin(std::optional<std::string> linkOrCode) {
  linkOrCode_ = std::move(linkOrCode);
  model_ = MacRemoteModel::make(
      {.main = context_.main,
       .pool = context_.pool(),
       .store = store_,
       .supportFolder = UserFolders{}.orOwn().support,
       .relayURL = relayOfUser(),
       .trustedCertificates = {}},
      {.onChange = weakly(this, [](PairedHost& host) { host.changed(); }),
       .prepareNotifications = nullptr,
       .notify = nullptr,
       .onMessage = weakly(
           this, [](PairedHost& host, const RemoteEnvelope& message) { host.received(message); })},
      !linkOrCode_);
  limit_ = context_.main.after(
      connectLimit, weakly(this, [](PairedHost& host) {
        const auto& state = host.model_->state().connectionState;
        const std::string why = state.kind == Kind::waitingForHost
                                    ? "The relay answers, but the host is not connected to it."
                                    : state.message;
        // A key that has been changed looks like a connection that ends at once.
        const std::string_view advice =
            host.linkOrCode_
                ? "The pairing is stored; the next command tries again."
                : "If its access key has been changed, pair again: vantrell connect LINK";
        host.context_.fail(fmt::format("{} does not answer.{}{} {}", host.name(),
                                       why.empty() ? "" : " ", why, advice));
      }));
  if (!linkOrCode_) return;
  model_->setPairingInput(*linkOrCode_);
  model_->connect();
}

void PairedHost::close() {
  const auto self = shared_from_this();
  onChange = nullptr;
  onMedia = nullptr;
  onReconnected = nullptr;
  then_ = nullptr;
  pending_.clear();
  limit_.cancel();
  settling_.cancel();
}

std::string_view PairedHost::road() const {
  const auto& route = model_->state().connectionState.route;
  return route == MacRemoteRoute::relay ? "through the relay" : "directly";
}

void PairedHost::changed() {
  if (context_.hasFinished() || !model_) return;
  const auto& state = model_->state();
  if (state.connectionState.kind == Kind::failed) {
    return context_.fail(state.errorMessage.value_or(state.connectionState.message));
  }
  if (!linkOrCode_ && state.isStoredPairingRead && state.pairingInput.empty()) {
    return context_.misused(
        "This computer is not paired with a host. On the host type \"vantrell remote on\" and "
        "\"vantrell remote link\", and here: vantrell connect LINK");
  }
  const bool isConnected = state.connectionState.kind == Kind::connected;
  if (isConnected && !wasConnected_) mustCatchUp_ = true;
  if (!isConnected && wasConnected_ && seen_ && !std::exchange(isLossTold_, true)) {
    context_.complain(
        fmt::format("The connection to {} is lost. It is tried again and again.", name()));
  }
  wasConnected_ = isConnected;
  if (state.snapshot && state.snapshot != seen_) return snapshotCame();
  call(onChange);
}

void PairedHost::snapshotCame() {
  seen_ = model_->state().snapshot;
  ++snapshotNumber_;
  limit_ = context_.main.after(patience, weakly(this, [](PairedHost& host) {
                                 host.isGivenUp_ = true;
                                 call(host.onChange);
                               }));
  if (std::exchange(mustCatchUp_, false)) {
    if (std::exchange(isLossTold_, false)) {
      context_.complain(fmt::format("{} is connected again, {}.", name(), road()));
    }
    for (auto each = pending_.begin(); each != pending_.end();) {
      const bool hasHappened = each->isSent && each->hasHappened && each->hasHappened(*seen_);
      if (hasHappened) {
        confirmed(each);
        each = pending_.begin();
        continue;
      }
      each->isSent = model_->send(each->command);  // a host obeys each id once
      ++each;
    }
    if (snapshotNumber_ > 1) call(onReconnected);
  }
  if (!then_) {
    call(onChange);
    return;
  }
  if (snapshotNumber_ > 1) return goOn();
  settling_ = context_.main.after(settlingTime, weakly(this, [](PairedHost& host) {
                                    if (host.then_) host.goOn();
                                  }));
}

void PairedHost::goOn() {
  if (context_.hasFinished()) return;
  settling_.cancel();
  std::exchange(then_, nullptr)(shared_from_this());
}

void PairedHost::received(const RemoteEnvelope& message) {
  if (context_.hasFinished()) return;
  const auto type = message.knownType();
  if (type == Type::mediaChunk) return call(onMedia, message);
  if (type == Type::error) {
    // It bears no id, and comes before the confirmation of the command that it is about.
    const auto sent = std::ranges::find(pending_, true, &Pending::isSent);
    if (sent != pending_.end()) sent->refusal = message.text.value_or("The host refused.");
  } else if (type == Type::ack && message.acknowledgesID) {
    const auto sent = std::ranges::find(pending_, *message.acknowledgesID,
                                        [](const Pending& each) { return each.command.id; });
    if (sent != pending_.end()) confirmed(sent);
  }
}

void PairedHost::confirmed(std::deque<Pending>::iterator which) {
  const Pending command = std::move(*which);
  pending_.erase(which);
  if (!command.done) return;
  command.done(command.refusal ? Result<>(refuse(*command.refusal)) : Result<>());
}

void PairedHost::deliver(RemoteEnvelope command, HasHappened hasHappened,
                         std::function<void(Result<>)> done) {
  pending_.push_back({.command = std::move(command),
                      .hasHappened = std::move(hasHappened),
                      .done = std::move(done),
                      .refusal = std::nullopt});
  auto& last = pending_.back();
  const bool isReady = wasConnected_ && !mustCatchUp_;
  if (isReady) last.isSent = model_->send(last.command);
}

void PairedHost::refresh() {
  if (wasConnected_) model_->send(RemoteEnvelope::make(Type::refresh));
}

}  // namespace vantrell::shell
