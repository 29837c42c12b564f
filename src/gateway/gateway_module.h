// Everything that the gateway is made of, in the order of its dependencies. For app/, which owns
// one, and for tests. Main queue.
#pragma once

#include <memory>
#include <string>

#include "gateway/compatibility_routes.h"
#include "gateway/gateway_jobs.h"
#include "gateway/gateway_scope.h"
#include "gateway/gateway_server.h"
#include "gateway/gateway_store.h"
#include "gateway/job_routes.h"
#include "gateway/personal_gateway.h"
#include "gateway/site_keys.h"

namespace vantrell {

struct GatewayModule {
  /// All must outlive it.
  struct Dependencies {
    MainQueue& main;
    Changes& changes;
    const WorkspaceTree& tree;
    const Settings& settings;
    ProviderServices& providers;
    BackgroundPool& pool;
    std::string supportFolder;  // the program's own data folder
  };
  explicit GatewayModule(const Dependencies& given);
  /// endAllWork().
  ~GatewayModule();
  GatewayModule(const GatewayModule&) = delete;
  GatewayModule& operator=(const GatewayModule&) = delete;

  /// Reads keys and jobs, and settles jobs that an earlier process left at work: for the process
  /// that owns the state. Neither listens nor starts a job, which is PersonalGateway::start().
  void load();
  /// Takes no more requests and ends the job at work. All of it is on the disk when this returns,
  /// or the result is false. It blocks: for the end of the process.
  bool endAllWork();

  HttpClient http;  // to the local runtime
  GatewayStore store;
  SiteKeys keys;
  GatewayScope scope;
  const std::shared_ptr<GatewayJobs> jobs;
  JobRoutes jobRoutes;
  const std::shared_ptr<CompatibilityRoutes> compatibilityRoutes;
  GatewayServer server;
  PersonalGateway gateway;
};

}  // namespace vantrell
