#include "fleet/fleet_credential_store.h"

#include "platform/secrets/secret_queue.h"
#include "platform/text/text.h"
#include "records/stores/json_fields.h"

namespace vantrell {

static constexpr auto fieldsOf(const FleetEndpointCredential*) {
  using R = FleetEndpointCredential;
  return fields(field("endpoint", &R::endpoint), field("bearerToken", &R::bearerToken));
}

namespace {

std::string accountOf(const Uuid& hostID) {
  return text::lowercased(hostID.text());
}

std::optional<FleetEndpointCredential> credentialIn(const std::optional<std::string>& text) {
  if (!text) return std::nullopt;
  const auto json = json::parse(*text);
  FleetEndpointCredential credential;
  JsonReading reading{orchestrationJson};
  if (!json || !readJson(*json, credential, reading)) return std::nullopt;
  return credential;
}

}  // namespace

void FleetCredentialStore::load(const Uuid& hostID,
                                std::move_only_function<void(std::optional<std::string>)> answer) {
  secrets_.read(secretService, accountOf(hostID),
                [answer = std::move(answer)](auto stored) mutable {
                  answer(stored ? *std::move(stored) : std::nullopt);
                });
}

void FleetCredentialStore::loadCredential(
    const Uuid& hostID,
    std::move_only_function<void(std::optional<FleetEndpointCredential>)> answer) {
  load(hostID, [answer = std::move(answer)](const std::optional<std::string>& text) mutable {
    answer(credentialIn(text));
  });
}

void FleetCredentialStore::save(std::string link, const Uuid& hostID,
                                std::function<void(Result<>)> answer) {
  secrets_.write(secretService, accountOf(hostID), std::move(link),
                 [answer = std::move(answer)](const auto& stored) {
                   answer(stored ? Result<>() : refuse(stored.error().description));
                 });
}

void FleetCredentialStore::save(const FleetEndpointCredential& credential, const Uuid& hostID,
                                std::function<void(Result<>)> answer) {
  std::string text;
  JsonWriter writer(text);
  writeJson(writer, credential, orchestrationJson);
  save(std::move(text), hostID, std::move(answer));
}

void FleetCredentialStore::remove(const Uuid& hostID) {
  secrets_.remove(secretService, accountOf(hostID), [](const auto&) {});
}

}  // namespace vantrell
