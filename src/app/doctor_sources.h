// What the connection doctor is told about the other features. Main queue.
#pragma once

#include <functional>
#include <string>

#include "doctor/doctor.h"
#include "remote/host/remote_relay_client.h"

namespace vantrell {

class Fleet;
class RemoteAccess;
class SessionImport;
class Settings;
class UpdateController;

/// The relay's state in a few words: "Reconnecting…", or the state's own sentence if it has one.
std::string relayDetail(const RemoteRelayState& relay);

/// The feed of updates, and beside it what tells phones about their application; nothing where no
/// feed is set. On one server as a rule.
std::vector<Url> feedsToCheck(const UpdateController& updates);

/// What the doctor asks. What is given must outlive it; what is a function is made at its first
/// use.
struct DoctorFeatures {
  const Settings& settings;
  const UpdateController& updates;
  std::function<Fleet&()> fleet;
  std::function<SessionImport&()> sessions;
  std::function<RemoteAccess&()> remote;
};
DoctorSources doctorSources(const DoctorFeatures& features);

}  // namespace vantrell
