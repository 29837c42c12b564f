// The routes below /v1: projects, jobs, their events, cancelling and approvals, in the JSON of the
// wire. The caller has refused browsers and found the key before. Main queue.
#pragma once

#include <functional>
#include <memory>

#include "gateway/gateway_jobs.h"
#include "gateway/gateway_message.h"

namespace vantrell {

class JobRoutes {
 public:
  /// What is given must outlive it.
  JobRoutes(GatewayJobs& jobs, GatewayScope& scope, const SiteKeys& keys, GatewayStore& store)
      : jobs_(jobs), scope_(scope), keys_(keys), store_(store) {}

  using Completion = std::function<void(GatewayResponse)>;
  /// Answers once, also for a path that is no route: at once, or when what the answer promises is
  /// on the disk and what it depends on is known.
  void respond(const GatewayRequest& request, const SiteKey& key, Completion completion);

 private:
  GatewayJobs& jobs_;
  GatewayScope& scope_;
  const SiteKeys& keys_;
  GatewayStore& store_;
};

}  // namespace vantrell
