// The routes in the formats of other vendors, answered by the local runtime that the user has
// chosen. They touch neither the job queue nor any subscription. Main queue.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>

#include "gateway/compatibility_request.h"
#include "gateway/gateway_records.h"
#include "platform/http/http_client.h"

namespace vantrell {

class MainQueue;
class ProviderServices;

class CompatibilityRoutes : public std::enable_shared_from_this<CompatibilityRoutes> {
 public:
  /// What is given must outlive it.
  static std::shared_ptr<CompatibilityRoutes> make(MainQueue& main, HttpClient& http,
                                                   ProviderServices& services);

  using Completion = std::function<void(GatewayResponse)>;
  /// The caller has refused browsers and found the key before, and knows that it is a request for
  /// these routes. Answers once. Where it is not known yet whether a runtime answers, this is found
  /// out first; a runtime that did not answer is looked for again, for the next request.
  void respond(GatewayRequest request, const SiteKey& key, Completion completion);

  /// Answers those that wait for the runtime: nothing is answered later.
  void endAllWork();

  /// At once: what a local model does takes the whole machine.
  static constexpr std::size_t mostRequests = 2;

 private:
  CompatibilityRoutes(MainQueue& main, HttpClient& http, ProviderServices& services)
      : main_(main), http_(http), services_(services) {}
  void infer(const GatewayRequest& request, Completion completion);

  MainQueue& main_;
  HttpClient& http_;
  ProviderServices& services_;
  std::map<std::uint64_t, Completion> active_;  // by the number of the request
  std::uint64_t lastNumber_ = 0;
};

}  // namespace vantrell
