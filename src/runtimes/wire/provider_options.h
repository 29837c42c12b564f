// What the session controls offer for a provider: its models and the efforts of each.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vantrell {

struct ProviderEffortOption {
  std::string id;
  std::string label;
  std::string detail;

  /// "Extra high" for "xhigh", else the id with a capital; an empty detail gets a sentence.
  static ProviderEffortOption named(std::string id, std::string detail);
  /// The runtime's own choice.
  static ProviderEffortOption defaultOption();
  /// The runtime's own choice and then these.
  static std::vector<ProviderEffortOption> list(const std::vector<std::string_view>& ids);

  bool operator==(const ProviderEffortOption&) const = default;
};

struct ProviderModelOption {
  std::string id;
  std::string label;
  std::string detail;
  bool isDefault = false;
  std::vector<ProviderEffortOption> efforts;

  static ProviderModelOption defaultOption(std::vector<ProviderEffortOption> efforts);

  bool operator==(const ProviderModelOption&) const = default;
};

/// Whether one of them has this id.
bool offers(const std::vector<ProviderModelOption>& models, std::string_view id);
bool offers(const std::vector<ProviderEffortOption>& efforts, std::string_view id);

// What a conversation's choice means among the options; an absent choice is "default".

/// The efforts of the chosen model, of "default" where that is not offered; never empty.
std::vector<ProviderEffortOption> effortsOf(const std::vector<ProviderModelOption>& models,
                                            const std::optional<std::string>& modelID);
/// The choice itself where it is not offered.
std::string labelOf(const std::vector<ProviderModelOption>& models,
                    const std::optional<std::string>& id);
std::string labelOf(const std::vector<ProviderEffortOption>& efforts,
                    const std::optional<std::string>& id);

}  // namespace vantrell
