// An ACP client and a scripted agent at the other end of real pipes.
#pragma once

#include "runtimes/acp/acp_client.h"
#include "runtimes/agent_client_fixture.h"
#include "support/acp_agent_script.h"

namespace vantrell::tests {

class ACPClientTest : public AgentClientTest {
 protected:
  ACPClientTest() {
    configuration_.provider = AgentProvider::grok;
    configuration_.executable = ACPAgentScript::program();
    configuration_.workspacePath = project_;
    configuration_.processEnvironment = {{"PATH", "/usr/bin:/bin"}};
    configuration_.runtimeName = "Grok";
  }

  void make(const AgentScriptText& script) override {
    configuration_.processArguments = {folder_.file("script", script.withWaitAtTheEnd())};
    client_ = ACPClient::make(configuration_, main_, pool_);
  }

  std::string opening() const override { return ACPAgentScript().openSession().text(); }
  std::string beginningOfATurn() const override { return ACPAgentScript().expectPrompt().text(); }

  ACPConfiguration configuration_;
};

}  // namespace vantrell::tests
