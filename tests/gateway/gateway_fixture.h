// The gateway's keys and jobs as one process has them, reached through their routes. Agents are the
// practice agent, as real children that speak for every provider; time is virtual.
#pragma once

#include <gtest/gtest.h>
#include <set>

#include "platform/process/process.h"
#include "platform/queues/manual_main_queue.h"
#include "runtimes/acp/acp_client.h"
#include "runtimes/catalog/runtime_locator.h"
#include "support/agent_script.h"
#include "support/gateway_parts.h"

namespace vantrell::tests {

/// Before all that uses it.
struct VirtualMainQueue {
  ManualMainQueue main;
};

class GatewayFixture : public ::testing::Test,
                       protected VirtualMainQueue,
                       protected GatewaySurroundings {
 protected:
  struct Caller {
    Uuid id;
    std::string secret;
  };
  struct Answer {
    int status = 0;
    Json body;
    const JsonObject& object() const { return *body.asObject(); }
    /// The text at the key, or the code of an error.
    std::string text(std::string_view key) const { return json::textOr(object(), key, ""); }
    std::string code() const {
      const auto* error = json::object(object(), "error");
      return error ? json::textOr(*error, "code", "") : "";
    }
  };

  GatewayFixture() : GatewaySurroundings(main, {"site", "shop"}) {
    for (const auto each : allAgentProviders) {
      providers.connectors[each] = {
          each, "Install it.", [this, each](const auto&) { return !missing.contains(each); },
          [this, each](const ProviderConnectorContext& context) { return client(each, context); }};
    }
    start();
  }
  ~GatewayFixture() override {
    gateway.reset();
    EXPECT_TRUE(Process::waitForAll(std::chrono::seconds(20)));
  }

  void start(bool serves = true) {
    gateway = std::make_unique<GatewayModule>(dependencies());
    gateway->load();
    keys = &gateway->keys;
    jobs = gateway->jobs.get();
    store = &gateway->store;
    keys->setEnabled(true);
    if (serves) jobs->begin();
  }
  /// After a kill at this moment: what is on the disk is what a new process finds.
  void restart(bool serves = true) {
    EXPECT_TRUE(store->flush());
    const auto stored = folder.contentOf(jobsFile);
    gateway.reset();
    folder.file("data/personal-gateway-jobs.json", stored);
    start(serves);
  }

  Caller makeKey(const std::string& name, std::set<AgentProvider> allowed,
                 GrokPermissionMode most = GrokPermissionMode::ask,
                 std::set<std::string> projects = {"site", "shop"}) {
    SiteKeys::Scope given{{}, std::move(allowed), most};
    for (const auto& each : projects) given.workspacePaths.insert(folder / each);
    const auto made = keys->create(name, given);
    EXPECT_TRUE(made);
    return {made->id, made->secret};
  }

  Answer ask(const Caller& caller, std::string method, std::string path, std::string body = {},
             GatewayHeaders headers = {}) {
    std::optional<GatewayResponse> response;
    const auto* key = keys->authenticate({{"authorization", "Bearer " + caller.secret}});
    if (!key) return {401, JsonObject{}};
    gateway->jobRoutes.respond(
        {std::move(method), std::move(path), std::move(headers), std::move(body)}, *key,
        [&](GatewayResponse given) { response = std::move(given); });
    EXPECT_TRUE(main.runUntil([&] { return response.has_value(); }));
    return {response->status, *json::parse(response->body)};
  }
  Answer get(const Caller& caller, std::string path) { return ask(caller, "GET", std::move(path)); }
  Answer post(const Caller& caller, std::string path, const JsonObject& body = {}) {
    return ask(caller, "POST", std::move(path), json::write(body));
  }
  std::string projectID(std::size_t index = 0) const { return tree.workspaces()[index].id.text(); }
  Answer submit(const Caller& caller, const std::string& prompt, const JsonObject& more = {}) {
    JsonObject body{{"project", projectID()}, {"provider", "codex"}, {"prompt", prompt}};
    for (const auto& [key, value] : more) body.set(key, value);
    return post(caller, "/v1/jobs", body);
  }
  /// The path of a new job.
  std::string job(const Caller& caller, const std::string& prompt, const JsonObject& more = {}) {
    const auto answer = submit(caller, prompt, more);
    EXPECT_EQ(answer.status, 202) << json::write(answer.body);
    return "/v1/jobs/" + answer.text("id");
  }
  static Uuid idIn(const std::string& path) { return *Uuid::parse(path.substr(9)); }
  std::string status(const Caller& caller, const std::string& path) {
    return get(caller, path).text("status");
  }
  Answer await(const Caller& caller, const std::string& path, const std::string& wanted) {
    EXPECT_TRUE(main.runUntil([&] {
      const auto found = jobs->find(idIn(path));
      return found && rawText(found->status) == wanted;
    })) << path
        << " is " << status(caller, path) << ", not " << wanted;
    return get(caller, path);
  }
  std::vector<std::string> eventTypes(const Caller& caller, const std::string& path) {
    std::vector<std::string> types;
    const auto answer = get(caller, path + "/events");
    for (const auto& each : *answer.body.asArray()) {
      types.push_back(json::textOr(*each.asObject(), "type", ""));
    }
    return types;
  }

  std::shared_ptr<AgentClient> client(AgentProvider provider,
                                      const ProviderConnectorContext& context) {
    contexts.push_back(context);
    ACPConfiguration configuration;
    configuration.provider = provider;
    configuration.executable = program;
    configuration.workspacePath = context.workspacePath;
    configuration.permissionMode = context.permissionMode;
    configuration.processArguments = {argument};
    configuration.processEnvironment = runtimeEnvironment(provider);
    configuration.runtimeName = shortLabel(provider);
    return ACPClient::make(std::move(configuration), main, pool);
  }

  std::set<AgentProvider> missing;  // whose runtimes are not there
  std::vector<ProviderConnectorContext> contexts;
  const std::string practiceAgent =
      std::filesystem::path(AgentScriptText::program()).replace_filename("vantrell-practice-agent");
  std::string program = practiceAgent;
  std::string argument = "acp";
  const std::string jobsFile = folder / "data/personal-gateway-jobs.json";
  std::unique_ptr<GatewayModule> gateway;
  GatewayStore* store = nullptr;  // of it, as are these
  SiteKeys* keys = nullptr;
  GatewayJobs* jobs = nullptr;
};

}  // namespace vantrell::tests
