// What the connection doctor is told about the other features. Main queue.
#pragma once

#include <string>

#include "doctor/doctor.h"
#include "remote/host/remote_relay_client.h"

namespace vantrell {

class Settings;

/// The relay's state in a few words: "Reconnecting…", or the state's own sentence if it has one.
std::string relayDetail(const RemoteRelayState& relay);

/// The settings must outlive it.
DoctorSources doctorSources(const Settings& settings);

}  // namespace vantrell
