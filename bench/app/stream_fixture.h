// A whole engine with a real child process that streams prepared updates, for measuring what they
// cost on their way from the pipe to the observers.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <functional>
#include <memory>
#include <string>

#include "app/ports.h"
#include "engine/app_model.h"
#include "platform/process.h"
#include "platform/run_loop.h"
#include "platform/user_defaults.h"
#include "records/workspace_store.h"
#include "runtimes/acp/acp_client.h"

namespace vantrell::bench {

/// One update as agents send them: a chunk of `text` for the message with this id.
inline std::string updateLine(const std::string& messageID, const std::string& text) {
  return fmt::format(
      R"({{"jsonrpc":"2.0","method":"session/update","params":{{"sessionId":"9a0d2c1e-5b1f-4d55-8e3a-0f6f3c2b7a11","update":{{"sessionUpdate":"agent_message_chunk","messageId":"{}","content":{{"type":"text","text":"{}"}}}}}}}})",
      messageID, text);
}

class StreamFixture {
 public:
  /// The lines that the agent sends in the turn.
  explicit StreamFixture(const std::string& lines) {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "vantrell-bench-XXXXXX").string();
    if (!mkdtemp(pattern.data())) std::abort();
    folder_ = pattern;
    std::ofstream(folder_ + "/lines") << lines;
    // Answers "initialize" and "session/new", and at the prompt pours the lines out.
    std::ofstream(folder_ + "/agent")
        << "#!/bin/sh\nread l; echo '{\"jsonrpc\":\"2.0\",\"id\":1,\"result\":{}}'\n"
           "read l; echo '{\"jsonrpc\":\"2.0\",\"id\":2,\"result\":{\"sessionId\":\"s\"}}'\n"
           "read l; cat \""
        << folder_
        << "/lines\"; echo "
           "'{\"jsonrpc\":\"2.0\",\"id\":3,\"result\":{\"stopReason\":\"end_turn\"}}'\n"
           "read l\n";
    std::filesystem::permissions(folder_ + "/agent", std::filesystem::perms::owner_all);
  }
  ~StreamFixture() { std::filesystem::remove_all(folder_); }

  /// Runs one turn to its end. `streaming` is called when the prompt goes out, `observe` for each
  /// change, `streamed` when the run has ended.
  void run(const std::function<void()>& streaming,
           const std::function<void(const Change&)>& observe,
           const std::function<void(const Transcript&)>& streamed) {
    RunLoop main;
    BackgroundPool pool;
    auto defaults = UserDefaults::inMemory();
    WorkspaceStore store(*defaults, folder_);
    ProviderConnector connector;
    connector.provider = AgentProvider::grok;
    connector.isAvailable = [](const auto&) { return true; };
    connector.makeClient = [&](const ProviderConnectorContext& context) {
      ACPConfiguration configuration;
      configuration.executable = folder_ + "/agent";
      configuration.workspacePath = context.workspacePath;
      configuration.processEnvironment = currentEnvironment();
      configuration.runtimeName = "Bench";
      return ACPClient::make(std::move(configuration), main, pool);
    };
    EnginePorts ports = neutralPorts();
    ports.connector = [&](AgentProvider) -> const ProviderConnector& { return connector; };
    AppModel model(main, *defaults, store, ports);
    const auto key = *model.selection.key();
    const auto observation = model.changes.observe([&](const Change& change) {
      observe(change);
      if (change.kind != Change::Kind::runChanged) return;
      const RunRecord& run = *model.tree.latestRun(key);
      if (run.status == RunRecordStatus::running) streaming();
      if (!isActive(run.status)) {
        if (run.status != RunRecordStatus::completed) std::abort();
        streamed(model.tree.thread(key)->entries);
        main.quit();
      }
    });
    model.driver->send("Go", {});
    main.run();
    model.endAllWork();
    Process::waitForAll(std::chrono::seconds(5));
  }

 private:
  std::string folder_;
};

}  // namespace vantrell::bench
