// What the session controls offer for a provider: its models and the efforts of each.
#pragma once

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

}  // namespace vantrell
