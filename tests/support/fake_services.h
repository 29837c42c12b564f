// The surroundings of an engine, played by functions that a test or a benchmark may replace before
// the engine is made.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "engine/projects/project_services.h"
#include "engine/providers/provider_services.h"

namespace vantrell::tests {

struct FakeProviders : ProviderServices {
  std::map<AgentProvider, ProviderConnector> connectors;
  LocalRuntimeStatus localStatus = LocalRuntimeStatus::checking();
  int localRefreshes = 0;
  bool isConfigured = false;
  std::function<void(const std::string&, std::function<void(bool)>)> save =
      [](const std::string&, const std::function<void(bool)>& reply) { reply(false); };
  std::function<bool(AgentProvider)> known = [](AgentProvider) { return true; };
  std::function<void(AgentProvider, std::function<void()>)> findOut =
      [](AgentProvider, const std::function<void()>& done) { done(); };

  const ProviderConnector& connector(AgentProvider each) const override {
    return connectors.at(each);
  }
  LocalRuntimeStatus localRuntimeStatus() const override { return localStatus; }
  void refreshLocalRuntime() override { ++localRefreshes; }
  bool isTaskletConfigured() const override { return isConfigured; }
  void loadTasklet(std::function<void()> done) override { done(); }
  void saveTaskletWebhook(const std::string& text, std::function<void(bool)> reply) override {
    save(text, std::move(reply));
  }
  bool isKnown(AgentProvider each) const override { return known(each); }
  void prepare(AgentProvider each, std::function<void()> done) override {
    findOut(each, std::move(done));
  }
};

struct FakeProjects : ProjectServices {
  std::function<void(const std::string&, std::function<void(std::string)>)> repository =
      [](const auto&, const auto& reply) { reply(""); };
  std::function<void(const std::string&, std::function<void(std::vector<ProjectContextSource>)>)>
      contextSources = [](const auto&, const auto& reply) { reply({}); };
  std::function<void(const std::string&, std::stop_token,
                     std::function<void(GitWorkspaceSnapshot)>)>
      git = [](const auto&, const auto&, const auto& reply) {
        reply(GitWorkspaceSnapshot::unavailable());
      };
  std::function<void(const ProjectHook&, const std::string&, std::function<void(std::string)>)>
      hook = [](const auto&, const auto&, const auto& reply) { reply(""); };

  void repositoryState(const std::string& folder, std::function<void(std::string)> reply) override {
    repository(folder, std::move(reply));
  }
  void discoverContextSources(
      const std::string& folder,
      std::function<void(std::vector<ProjectContextSource>)> reply) override {
    contextSources(folder, std::move(reply));
  }
  void gitSnapshot(const std::string& folder, std::stop_token stop,
                   std::function<void(GitWorkspaceSnapshot)> reply) override {
    git(folder, std::move(stop), std::move(reply));
  }
  void runProjectHook(const ProjectHook& which, const std::string& folder,
                      std::function<void(std::string)> reply) override {
    hook(which, folder, std::move(reply));
  }
};

}  // namespace vantrell::tests
