// What the session controls offer for a provider: its models and the efforts of each.
#pragma once

#include <algorithm>
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

// What a conversation's choice means among the models or efforts that are offered.

template <typename Option>
const Option* findOption(const std::vector<Option>& options, std::string_view id) {
  const auto found = std::ranges::find(options, id, &Option::id);
  return found == options.end() ? nullptr : &*found;
}

template <typename Option>
bool offers(const std::vector<Option>& options, std::string_view id) {
  return findOption(options, id) != nullptr;
}

/// An absent choice is "default"; one that is not offered is its own label.
template <typename Option>
std::string labelOf(const std::vector<Option>& options, const std::optional<std::string>& id) {
  const auto* chosen = findOption(options, id.value_or("default"));
  return chosen ? chosen->label : id.value_or("");
}

/// The efforts of the chosen model, of "default" where that is not offered; never empty.
std::vector<ProviderEffortOption> effortsOf(const std::vector<ProviderModelOption>& models,
                                            const std::optional<std::string>& modelID);

}  // namespace vantrell
