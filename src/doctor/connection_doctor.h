// One run of the connection doctor: a fixed list of checks, one after the other, over what it is
// given. It reads the project's folder and its Git state in the background and asks the update
// feeds, and changes nothing. Nothing that it meets is an error of its own: it is a check that
// failed. Main queue; it stops when the last reference goes, and then reports nothing.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <utility>
#include <vector>

#include "doctor/diagnostic_report.h"
#include "platform/http/http_client.h"
#include "platform/queues/dispatch.h"
#include "platform/values/url.h"
#include "records/values/agent_provider.h"
#include "records/values/fleet_host.h"

namespace vantrell {

/// What remote control looks like at the moment.
struct DoctorRemote {
  bool isEnabled = false;
  std::string hostDetail;   // the status text of the host's listener
  std::string relayDetail;  // that of the relay; "Off" without one
};

struct DoctorInput {
  std::optional<std::string> workspacePath;
  std::vector<std::pair<AgentProvider, bool>> providers;  // whether each is ready
  DoctorRemote remote;
  std::vector<FleetHost> fleet;  // without this machine
  std::vector<Url> feeds;
};

class ConnectionDoctor : public std::enable_shared_from_this<ConnectionDoctor> {
 public:
  /// The time that each feed has to answer.
  static constexpr std::chrono::seconds feedLimit{8};

  /// All must outlive it; the main queue also the background's work.
  struct Dependencies {
    MainQueue& main;
    Executor& background;
    HttpClient& http;
  };
  using Done = std::function<void(DiagnosticReport)>;
  /// `done` is called once, never from inside this call.
  static std::shared_ptr<ConnectionDoctor> run(Dependencies dependencies, DoctorInput input,
                                               Done done);
  ConnectionDoctor(Dependencies dependencies, DoctorInput input, Done done);
  ~ConnectionDoctor();

 private:
  void checkWorkspace();
  void checkTheRest();
  void checkNextFeed();

  const Dependencies core_;
  const DoctorInput input_;
  const Done done_;
  std::stop_source stop_;
  std::vector<DiagnosticCheck> checks_;
  std::size_t nextFeed_ = 0;
};

}  // namespace vantrell
