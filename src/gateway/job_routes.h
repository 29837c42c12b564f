// The routes below /v1: projects, jobs, their events, cancelling and approvals, in the JSON of the
// wire. The caller has refused browsers and found the key before. Main queue; jobs are encoded in
// the background, one answer at a time.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "gateway/gateway_jobs.h"
#include "gateway/gateway_message.h"

namespace vantrell {

class JobRoutes {
 public:
  /// All must outlive it. A request that it has not answered at its end is never answered.
  struct Dependencies {
    MainQueue& main;
    GatewayJobs& jobs;
    GatewayScope& scope;
    const SiteKeys& keys;
    GatewayStore& store;
    BackgroundPool& background;
  };
  explicit JobRoutes(Dependencies dependencies)
      : core_(dependencies), encoding_(core_.background, "com.vantrell.gateway-answers") {}

  using Completion = std::function<void(GatewayResponse)>;
  /// Answers once, on the main queue, also for a path that is no route: as soon as what the answer
  /// depends on is known, and what it promises is on the disk.
  void respond(const GatewayRequest& request, const SiteKey& key, Completion completion);

  /// Also takes jobs in the form in which the fleet of another machine sends them, and lists
  /// projects with their folders for it.
  void serveFleet() { servesFleet_ = true; }

  /// Bytes. In a list that would be longer the oldest jobs have no `output`; each job alone has it.
  static constexpr std::size_t longestList = std::size_t{64} << 20;

 private:
  using Job = GatewayJobs::Job;

  void projects(const SiteKey& key, Completion completion);
  void create(const GatewayRequest& request, const SiteKey& key, Completion completion);
  /// Of one job: events, cancel and approval, or the job itself without an action.
  void jobRoute(const GatewayRequest& request, const Uuid& keyID, std::string_view id,
                std::string_view action, Completion completion);
  void changed(const GatewayResult<Job>& result, int status, Completion completion);
  void encode(std::function<std::string()> body, int status, Completion completion);

  const Dependencies core_;
  bool servesFleet_ = false;
  const SerialQueue encoding_;  // one answer at a time, so that many large ones need no more memory
  std::shared_ptr<void> life_ = std::make_shared<int>();  // what waits for an answer ends with us
};

}  // namespace vantrell
