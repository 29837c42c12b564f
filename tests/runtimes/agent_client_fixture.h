// A client and a scripted agent at the other end of real pipes, whatever the dialect. What the
// client says on the main queue is noted as lines of text, in order.
#pragma once

#include <gtest/gtest.h>
#include <thread>

#include "platform/queues/manual_main_queue.h"
#include "runtimes/wire/process_client.h"
#include "support/agent_script.h"
#include "support/temporary_folder.h"

namespace vantrell::tests {

class AgentClientTest : public testing::Test {
 protected:
  using Lines = std::vector<std::string>;
  ~AgentClientTest() override;

  /// A client whose runtime follows the script.
  virtual void make(const AgentScriptText& script) = 0;
  void listen();
  void start(std::optional<std::string> session = std::nullopt);
  void prompt(const std::string& text = "hello");
  /// make, listen and start.
  void begin(const AgentScriptText& script, std::optional<std::string> session = std::nullopt);
  /// The same up to the session that the script opens.
  void openBy(const AgentScriptText& script);
  /// The same for a script that says only what comes behind the usual opening.
  void open(const AgentScriptText& script);
  /// The same, and behind the beginning of a turn.
  void openTurn(const AgentScriptText& script);
  virtual std::string opening() const = 0;
  virtual std::string beginningOfATurn() const = 0;

  // How things are noted.
  virtual std::string describe(const JsonObject& update) const;
  virtual std::string describe(const AgentStartResult& result) const;
  virtual std::string describe(const AgentError& error) const;
  virtual std::string describe(const ProviderUsage& usage) const;
  virtual std::string describeEnd(const JsonObject& result) const { return json::write(result); }

  /// Lets the main queue work until the line, or so many lines, have been noted.
  void await(const std::string& line);
  void awaitCount(std::size_t count);
  void expectNotes(const Lines& expected);
  void note(std::string line);
  /// Executes the text as a program, with whatever arguments it is given.
  std::string program(const std::string& name, const std::string& shellScript) const;

  TemporaryFolder folder_;
  const std::string project_ = folder_.folder("project");
  ManualMainQueue main_;
  BackgroundPool pool_{2};
  std::shared_ptr<ProcessClient> client_;
  Lines notes_;
  std::string log_;
  std::string session_;
  Lines waits_;  // what the runtime waited for
  std::vector<JsonObject> updates_;
  std::vector<PermissionRequest> questions_;
  std::vector<ProviderUsage> usages_;
  std::vector<AgentError> failures_;  // of prompts

 private:
  void checkThread() const { EXPECT_EQ(std::this_thread::get_id(), thread_); }
  const std::thread::id thread_ = std::this_thread::get_id();
};

}  // namespace vantrell::tests
