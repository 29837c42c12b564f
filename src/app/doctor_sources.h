// What the connection doctor is told about the other features. Main queue.
#pragma once

#include <functional>
#include <string>

#include "doctor/doctor.h"
#include "remote/host/remote_relay_client.h"

namespace vantrell {

class Fleet;
class Settings;

/// The relay's state in a few words: "Reconnecting…", or the state's own sentence if it has one.
std::string relayDetail(const RemoteRelayState& relay);

/// What is given must outlive it; the fleet is asked for when it is needed.
DoctorSources doctorSources(const Settings& settings, std::function<Fleet&()> fleet);

}  // namespace vantrell
