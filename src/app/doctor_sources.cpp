#include "app/doctor_sources.h"

#include "discovery/session_import.h"
#include "engine/core/settings.h"
#include "fleet/fleet.h"
#include "remote/host/remote_access.h"
#include "updates/update_controller.h"

namespace vantrell {

std::string relayDetail(const RemoteRelayState& relay) {
  if (!relay.message.empty()) return relay.message;
  switch (relay.phase) {
    case RemoteRelayState::Phase::disabled: return "Off";
    case RemoteRelayState::Phase::connecting: return "Connecting…";
    case RemoteRelayState::Phase::connected: return "Internet relay ready";
    case RemoteRelayState::Phase::waiting: return "Reconnecting…";
    case RemoteRelayState::Phase::failed: return "Needs attention";
  }
  return {};
}

std::vector<Url> feedsToCheck(const UpdateController& updates) {
  const auto feed = updates.validatedFeedURL();
  if (!feed) return {};
  std::vector<Url> feeds{*feed};
  const auto server = feed->text().substr(0, feed->text().find('/', feed->text().find("://") + 3));
  if (const auto manifest = Url::parse(server + "/android/manifest.json")) {
    feeds.push_back(*manifest);
  }
  return feeds;
}

DoctorSources doctorSources(const DoctorFeatures& features) {
  DoctorSources sources;
  sources.feeds = [&updates = features.updates] { return feedsToCheck(updates); };
  sources.remote = [&settings = features.settings, remote = features.remote] {
    const auto& state = remote().state();
    return DoctorRemote{.isEnabled = settings.isRemoteHostEnabled(),
                        .hostDetail = state.host.label(),
                        .relayDetail = relayDetail(state.relay)};
  };
  sources.restartRemoteHost = [remote = features.remote] { remote().restart(); };
  sources.fleet = [fleet = features.fleet] {
    auto hosts = fleet().fleetHosts();
    std::erase_if(hosts, [](const FleetHost& host) { return host.isThisMachine(); });
    return hosts;
  };
  sources.refreshSessions = [sessions = features.sessions] {
    sessions().refreshExternalSessions();
  };
  sources.refreshFleet = [fleet = features.fleet] { fleet().refreshFleet(); };
  return sources;
}

}  // namespace vantrell
