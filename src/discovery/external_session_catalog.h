// Asks the agents' programs which sessions they know, each in the way that it offers, and joins the
// answers to one list of recent ones. It only reads: no turn is begun, and the programs run in the
// environment of their subscriptions. One program that fails or hangs holds up none of the others,
// and what each may cost is bounded. Main queue; everything that takes time happens elsewhere.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/process/program_runner.h"
#include "records/values/external_session.h"

namespace vantrell {

class ExternalSessionCatalog {
 public:
  struct Dependencies {
    MainQueue& main;
    BackgroundPool& pool;  // ends before the main queue
    std::shared_ptr<ProgramRunner> runner;
    /// The path that the user has set for a provider's program.
    std::function<std::optional<std::string>(AgentProvider)> customExecutable;
  };
  explicit ExternalSessionCatalog(Dependencies dependencies);
  /// A scan under way ends without its completion.
  ~ExternalSessionCatalog();
  ExternalSessionCatalog(const ExternalSessionCatalog&) = delete;
  ExternalSessionCatalog& operator=(const ExternalSessionCatalog&) = delete;

  using Completion = std::function<void(ExternalSessionScanResult)>;
  /// Scans all providers. One of them tells only of the folder that it is run in, so the folders of
  /// known projects are asked too, the first ones first. A call during a scan gets its result.
  void discover(std::vector<std::string> projectFolders, Completion completion);

  /// A session that was last changed before is left out, unless it is active.
  static constexpr std::chrono::days recentTime{7};
  /// Of one listing of a program, and of all that one provider is asked in a scan; what it has told
  /// by then counts.
  static constexpr std::chrono::seconds listingLimit{20}, providerLimit{60};
  static constexpr std::size_t mostFolders = 10;    // that OpenCode is asked in, besides home
  static constexpr std::size_t mostProjects = 50;   // of Grok, those used last
  static constexpr std::size_t mostThreads = 500;   // of Codex
  static constexpr std::size_t mostSessions = 500;  // of any other provider, the newest

 private:
  class Scan;
  const Dependencies core_;
  std::shared_ptr<Scan> scan_;  // under way
  std::vector<Completion> completions_;
};

}  // namespace vantrell
