// Whether a runtime's program is there, for whoever asks often: a routing decision asks for every
// provider. A program that was found is only looked at again (it may have gone); one that was not
// is searched anew after a moment, or when what the search depends on has changed. What is started
// is always searched anew. Main queue.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/queues/dispatch.h"
#include "records/values/agent_provider.h"

namespace vantrell {

class FoundPrograms {
 public:
  explicit FoundPrograms(const MainQueue& main) : main_(main) {}

  /// Whether the provider's program is found; the custom path is the user's own, or absent.
  bool has(AgentProvider provider, const std::optional<std::string>& customPath);

  /// How long a program that is installed meanwhile may go unnoticed.
  static constexpr std::chrono::seconds missingFor{1};

 private:
  struct Search {
    std::optional<std::string> customPath;
    std::string path, home;            // of the environment
    std::vector<std::string> folders;  // of the login shell
    std::optional<std::string> program;
    Duration searchedAt{};
  };

  const MainQueue& main_;
  std::map<AgentProvider, Search> searches_;
};

}  // namespace vantrell
