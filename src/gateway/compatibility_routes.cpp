#include "gateway/compatibility_routes.h"

#include <algorithm>

#include "engine/providers/provider_services.h"
#include "gateway/compatibility_response.h"
#include "platform/queues/weakly.h"

namespace vantrell {

namespace {

GatewayResponse errorResponse(const GatewayError& error) {
  return GatewayResponse::error(error.status, error.code, error.message);
}

}  // namespace

std::shared_ptr<CompatibilityRoutes> CompatibilityRoutes::make(MainQueue& main, HttpClient& http,
                                                               ProviderServices& services) {
  return std::shared_ptr<CompatibilityRoutes>(new CompatibilityRoutes(main, http, services));
}

void CompatibilityRoutes::respond(GatewayRequest request, const SiteKey& key,
                                  Completion completion) {
  if (std::ranges::count(key.allowedProviders, AgentProvider::local) == 0) {
    return completion(
        GatewayResponse::error(403, "local_provider_not_allowed",
                               "This site key is not allowed to use local API compatibility."));
  }
  services_.prepare(
      AgentProvider::local,
      weakly(this, [request = std::move(request), completion = std::move(completion)](
                       CompatibilityRoutes& self) { self.infer(request, completion); }));
}

void CompatibilityRoutes::infer(const GatewayRequest& request, Completion completion) {
  const auto status = services_.localRuntimeStatus();
  const auto* connection = status.connection();
  if (!connection) {
    if (status.reason()) services_.refreshLocalRuntime();
    return completion(GatewayResponse::error(
        503, "local_runtime_unavailable",
        "Start or refresh Ollama, LM Studio, or the configured local runtime."));
  }
  if (active_.size() >= mostRequests) {
    return completion(GatewayResponse::error(
        429, "local_runtime_busy",
        "Two local inference requests are already running. Try again shortly."));
  }
  if (request.method == "GET") return completion(compatibilityModels(request, *connection));
  auto prepared = prepareCompatibility(request, *connection);
  if (!prepared) return completion(errorResponse(prepared.error()));
  const auto number = ++lastNumber_;
  active_.emplace(number, std::move(completion));
  auto upstream = std::move(prepared->upstream);
  http_.send(std::move(upstream),
             weakly(this, [number, prepared = *std::move(prepared)](
                              CompatibilityRoutes& self,
                              const std::expected<HttpResponse, HttpError>& result) {
               const auto ended = self.active_.extract(number);
               if (ended) {
                 ended.mapped()(compatibilityResponse(result, prepared, self.main_.now()));
               }
             }));
}

void CompatibilityRoutes::endAllWork() {
  for (const auto& [number, completion] : std::exchange(active_, {})) {
    completion(GatewayResponse::error(503, "not_ready",
                                      "Personal Gateway closed before local inference completed."));
  }
}

}  // namespace vantrell
