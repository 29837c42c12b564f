#include "app/doctor_sources.h"

#include "engine/core/settings.h"
#include "fleet/fleet.h"
#include "remote/host/remote_host_server.h"

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

DoctorSources doctorSources(const Settings& settings, std::function<Fleet&()> fleet) {
  DoctorSources sources;
  sources.remote = [&settings] {
    return DoctorRemote{.isEnabled = settings.isRemoteHostEnabled(),
                        .hostDetail = RemoteHostState{}.label(),
                        .relayDetail = relayDetail({})};
  };
  sources.fleet = [fleet] {
    auto hosts = fleet().fleetHosts();
    std::erase_if(hosts, [](const FleetHost& host) { return host.isThisMachine(); });
    return hosts;
  };
  sources.refreshFleet = [fleet] { fleet().refreshFleet(); };
  return sources;
}

}  // namespace vantrell
