#include "gateway/personal_gateway.h"

#include <fmt/format.h>

#include "platform/sockets/own_address.h"

namespace vantrell {

PersonalGateway::PersonalGateway(Dependencies dependencies) : core_(dependencies) {
  core_.server.onRequest = [this](GatewayRequest request, const GatewayServer::Respond& respond) {
    handle(std::move(request), respond);
  };
  core_.server.onStateChange = [this] { core_.changes.mark(topics::gateway); };
}

PersonalGateway::~PersonalGateway() {
  core_.server.onRequest = nullptr;
  core_.server.onStateChange = nullptr;
}

void PersonalGateway::start() {
  isServing_ = true;
  core_.jobs.begin();
  std::ignore = apply();  // lastError() has it
}

void PersonalGateway::serveFleet(std::function<JsonObject()> status) {
  fleetStatus_ = std::move(status);
  core_.jobRoutes.serveFleet();
}

void PersonalGateway::stop() {
  core_.server.stop();
}

Result<> PersonalGateway::setEnabled(bool enabled) {
  core_.keys.setEnabled(enabled);
  return apply();
}

Result<> PersonalGateway::setListenMode(GatewayListenMode mode) {
  core_.keys.setListenMode(mode);
  return apply();
}

Result<> PersonalGateway::setPort(std::int64_t port) {
  if (auto set = core_.keys.setPort(port); !set) return set;
  return apply();
}

Result<SiteKeys::Created> PersonalGateway::createKey(std::string_view name,
                                                     const SiteKeys::Scope& scope) {
  auto created = core_.keys.create(name, scope);
  if (created) lastError_.reset();
  return created;
}

std::string PersonalGateway::baseURL() const {
  const auto& [enabled, mode, port, keys] = core_.keys.configuration();
  return fmt::format("http://{}:{}",
                     mode == GatewayListenMode::localhost ? "127.0.0.1" : ownAddress(), port);
}

Result<> PersonalGateway::apply() {
  const auto& configuration = core_.keys.configuration();
  core_.changes.mark(topics::gateway);
  if (!isServing_) return {};
  if (!configuration.enabled) {
    core_.server.stop();
    return {};
  }
  const auto* address =
      configuration.listenMode == GatewayListenMode::localhost ? "127.0.0.1" : "0.0.0.0";
  const auto started = core_.server.start(address, static_cast<std::uint16_t>(configuration.port));
  core_.jobs.processNextJob();
  if (started) {
    lastError_.reset();
    return {};
  }
  lastError_ = started.error().description;
  return refuse(*lastError_);
}

void PersonalGateway::handle(GatewayRequest request, const GatewayServer::Respond& respond) {
  // Before the key is looked at: a page that has got hold of one must not be able to use it.
  if (request.headers.find("origin")) {
    return respond(GatewayResponse::error(
        403, "browser_clients_disabled",
        "Call Personal Gateway from your website backend, never browser JavaScript."));
  }
  if (fleetStatus_ && request.method == "GET" && request.path == "/v1/fleet/status") {
    return respond(GatewayResponse::json(fleetStatus_()));
  }
  const auto* key = core_.keys.authenticate(request.headers);
  if (!key) {
    return respond(GatewayResponse::error(
        401, "invalid_site_key", "Provide a valid site key as a Bearer token or x-api-key."));
  }
  if (isCompatibilityRequest(request)) {
    core_.compatibilityRoutes.respond(std::move(request), *key, respond);
  } else {
    core_.jobRoutes.respond(request, *key, respond);
  }
}

}  // namespace vantrell
