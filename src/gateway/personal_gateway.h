// The Personal Gateway as one thing: turned on and off, it listens as its configuration says,
// refuses browsers, finds the caller's key, and hands requests to the routes of jobs and of local
// models. Main queue.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "engine/core/changes.h"
#include "engine/core/refusal.h"
#include "gateway/compatibility_routes.h"
#include "gateway/gateway_jobs.h"
#include "gateway/gateway_server.h"
#include "gateway/job_routes.h"
#include "gateway/site_keys.h"

namespace vantrell {

class PersonalGateway {
 public:
  /// All must outlive it.
  struct Dependencies {
    Changes& changes;
    GatewayServer& server;
    SiteKeys& keys;
    GatewayJobs& jobs;
    JobRoutes& jobRoutes;
    CompatibilityRoutes& compatibilityRoutes;
  };
  explicit PersonalGateway(Dependencies dependencies);
  ~PersonalGateway();
  PersonalGateway(const PersonalGateway&) = delete;
  PersonalGateway& operator=(const PersonalGateway&) = delete;

  /// Listens if the configuration says so, and starts the next job, from now on whenever that
  /// changes: for the process that serves, when keys and jobs have been loaded.
  void start();
  bool isServing() const { return isServing_; }
  /// Also answers the routes by which the fleet of another machine asks about this one and hands
  /// jobs to it. `status` gives what that machine may know without a key.
  void serveFleet(std::function<JsonObject()> status);
  /// Takes no more requests; the configuration stays. Jobs are GatewayJobs::endAllWork()'s.
  void stop();

  // Stored at once; where this process does not serve, with no other effect. Refused with the
  // system's reason where it cannot listen so; the choice is kept. A job at work goes on when the
  // gateway is turned off, and no other starts.

  Result<> setEnabled(bool enabled);
  Result<> setListenMode(GatewayListenMode mode);
  Result<> setPort(std::int64_t port);

  /// As SiteKeys::create(); the last failure to listen counts as read.
  Result<SiteKeys::Created> createKey(std::string_view name, const SiteKeys::Scope& scope);

  // `topics::gateway` says when these have changed.

  const GatewayServer::State& state() const { return core_.server.state(); }
  /// Why it last could not listen. Nothing tries again before the next change of configuration.
  const std::optional<std::string>& lastError() const { return lastError_; }
  /// "http://127.0.0.1:43767", or with the address under which other machines reach this one.
  std::string baseURL() const;

 private:
  Result<> apply();
  void handle(GatewayRequest request, const GatewayServer::Respond& respond);

  const Dependencies core_;
  bool isServing_ = false;
  std::function<JsonObject()> fleetStatus_;
  std::optional<std::string> lastError_;
};

}  // namespace vantrell
