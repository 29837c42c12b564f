// The practice agent: answers what a host asks through the Agent Client Protocol. Owns the sessions
// that are open and their turns. Main queue; lives as long as the process.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "practice/acp_host.h"
#include "practice/session.h"
#include "practice/turn.h"

namespace vantrell::practice {

struct AgentOptions {
  std::string version;
  std::string stateFolder;      // where sessions are kept
  std::string mode = "manual";  // of new sessions
  std::function<void()> closeInput;
};

class PracticeAgent {
 public:
  PracticeAgent(MainQueue& queue, OutputWriter& output, AgentOptions options);
  PracticeAgent(const PracticeAgent&) = delete;
  PracticeAgent& operator=(const PracticeAgent&) = delete;

  /// One line from the host.
  void receive(std::string_view line) { host_.receive(line); }
  /// Writes down what turns that are still running have said so far; for the end of the process.
  void keepRunningSessions();

 private:
  struct OpenSession {
    OpenSession(AcpHost& host, Session opened)
        : session(std::move(opened)), transcript(host, session) {}
    Session session;
    Transcript transcript;
    std::shared_ptr<Turn> turn;
  };

  void handleRequest(const std::string& method, const JsonObject& params,
                     const AcpHost::Reply& reply);
  RpcAnswer initialize(const JsonObject& params);
  RpcAnswer newSession(const JsonObject& params);
  RpcAnswer loadSession(const JsonObject& params);
  RpcAnswer setConfigOption(const JsonObject& params);
  void prompt(const JsonObject& params, const AcpHost::Reply& reply);
  void cancel(const JsonObject& params);
  void keep(const Session& session);
  std::expected<OpenSession*, RpcError> openSession(const JsonObject& params);

  MainQueue& queue_;
  OutputWriter& output_;
  AgentOptions options_;
  AcpHost host_;
  SessionStore store_;
  HostAbilities abilities_;
  /// By id. A session stays at its address: its transcript refers to it.
  std::map<std::string, std::unique_ptr<OpenSession>, std::less<>> sessions_;
};

}  // namespace vantrell::practice
