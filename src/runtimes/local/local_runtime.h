// Models that are served on the user's own machine or network: what kind of server that is, and
// what was found of it. Plain values.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/values/url.h"
#include "records/values/raw_text.h"
#include "runtimes/wire/provider_options.h"

namespace vantrell {

enum class LocalRuntimeKind { automatic, ollama, lmStudio, custom };

inline constexpr std::array allLocalRuntimeKinds{
    LocalRuntimeKind::automatic, LocalRuntimeKind::ollama, LocalRuntimeKind::lmStudio,
    LocalRuntimeKind::custom};

constexpr auto rawTexts(LocalRuntimeKind) {
  return std::to_array<std::string_view>({"automatic", "ollama", "lm_studio", "custom"});
}
/// For people: "LM Studio".
std::string_view displayName(LocalRuntimeKind kind);

/// A server that answered.
struct LocalRuntimeConnection {
  LocalRuntimeKind kind = LocalRuntimeKind::automatic;
  std::string name;
  Url baseURL;  // root of its OpenAI-compatible API
  std::vector<ProviderModelOption> models;
};

class LocalRuntimeStatus {
 public:
  static LocalRuntimeStatus checking() { return LocalRuntimeStatus(Checking{}); }
  static LocalRuntimeStatus unavailable(std::string reason) {
    return LocalRuntimeStatus(Unavailable{std::move(reason)});
  }
  static LocalRuntimeStatus ready(LocalRuntimeConnection connection) {
    return LocalRuntimeStatus(std::move(connection));
  }

  bool isChecking() const { return std::holds_alternative<Checking>(state_); }
  /// Null unless ready.
  const LocalRuntimeConnection* connection() const {
    return std::get_if<LocalRuntimeConnection>(&state_);
  }
  /// Null unless unavailable.
  const std::string* reason() const {
    const auto* unavailable = std::get_if<Unavailable>(&state_);
    return unavailable ? &unavailable->reason : nullptr;
  }
  /// A few words for a status line.
  std::string label() const;

 private:
  struct Checking {};
  struct Unavailable {
    std::string reason;
  };
  template <typename State>
  explicit LocalRuntimeStatus(State state) : state_(std::move(state)) {}
  std::variant<Checking, Unavailable, LocalRuntimeConnection> state_;
};

enum class LocalRuntimeError { invalidURL, insecureRemoteURL, noModels };
/// The sentence for people.
std::string_view description(LocalRuntimeError error);

}  // namespace vantrell
