// Local models, Tasklet and the session controls through the built program, from the setting to the
// end of a turn: servers on loopback, programs of the test's own in the places where they are
// looked for.
#include <gmock/gmock.h>
#include <mutex>

#include "shell/program_fixture.h"
#include "support/codex_agent_script.h"
#include "support/http_server.h"

namespace vantrell {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using tests::CodexAgentScript;
using tests::HttpServer;

class ServicesProgram : public tests::TerminalProgram {
 protected:
  std::shared_ptr<tests::Record> command(std::vector<std::string> words, std::string input = {}) {
    auto options = vantrell(std::move(words));
    for (const auto& [name, value] : environment) options.environment[name] = value;
    auto record = start(std::move(options));
    record->process->write(std::move(input));
    record->process->closeInput();
    return finish(record);
  }
  JsonObject object(const std::vector<std::string>& words) {
    const auto record = command(words);
    EXPECT_EQ(code(record), 0) << record->error;
    const auto all = json::parse(record->output);
    EXPECT_TRUE(all && all->asObject()) << record->output;
    return all && all->asObject() ? *all->asObject() : JsonObject();
  }
  std::vector<std::string> models(const std::string& provider) {
    std::vector<std::string> ids;
    const auto all = object({"models", provider, "--json"});
    for (const auto& each : *json::array(all, "models")) {
      ids.push_back(json::textOr(*each.asObject(), "id", "?"));
    }
    return ids;
  }
  std::string content(const std::string& name) const {
    return tests::TemporaryFolder::contentOf(home / name);
  }
  std::string newTask() {
    return json::textOr(*json::parseObject(command({"new", "--json"})->output), "threadID", "");
  }

  std::map<std::string, std::string> environment;
};

// ---- local models -------------------------------------------------------------------------------

class LocalProgram : public ServicesProgram {
 protected:
  HttpServer server{HttpServer::answering(
      [](tests::ServerConnection& connection, const tests::ReceivedRequest& request) {
        if (request.target == "/api/tags") {
          connection.answer(200, R"({"models":[{"name":"of ollama"}]})");
        } else if (request.target == "/v1/models") {
          connection.answer(200, R"({"data":[{"id":"second"},{"id":"first"}]})");
        } else {
          connection.answer(404, "");
        }
      })};
};

TEST_F(LocalProgram, ServersAreFoundWhereTheSettingsSay) {
  const auto base = "http://" + server.hostAndPort();
  struct Case {
    std::string kind, url, name;
    std::vector<std::string> models;
  };
  const Case cases[] = {
      {"ollama", base + "/v1", "Ollama", {"default", "of ollama"}},
      {"lm_studio", base, "LM Studio", {"default", "first", "second"}},
      {"custom", base + "/v1", "Local runtime", {"default", "first", "second"}},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.kind);
    EXPECT_EQ(code(command({"settings", "local-runtime", each.kind})), 0);
    EXPECT_EQ(code(command({"settings", "local-url", each.url})), 0);
    EXPECT_EQ(models("local"), each.models);
    const auto shown = command({"providers", "--json"})->output;
    EXPECT_THAT(shown, HasSubstr("\"found\": \"" + each.name + "\""));
    EXPECT_THAT(shown, HasSubstr("\"baseURL\": \"" + base + "/v1\""));
    EXPECT_THAT(shown, HasSubstr("install Grok Build as the tool harness"));
  }
  EXPECT_EQ(code(command({"settings", "local-url", base + "/nothing"})), 0);
  EXPECT_THAT(command({"providers"})->output, HasSubstr("Local runtime returned HTTP 404."));
}

TEST_F(LocalProgram, TaskRunsInTheHarnessAgainstTheChosenModel) {
  install(".grok/bin/grok",
          "printf '%s\\n' \"$@\" > \"$HOME/arguments\"\n"
          "printf '%s\\n' \"$GROK_HOME\" \"$VANTRELL_LOCAL_TOKEN\" \"$PWD\" > "
          "\"$HOME/surroundings\"\n"
          "exec '" +
              terminal::programFolder() + "/vantrell-practice-agent' acp");
  home.file(".grok/config.toml", "the user's own");
  command({"settings", "local-runtime", "custom"});
  command({"settings", "local-url", "http://" + server.hostAndPort()});
  const auto task = newTask();
  EXPECT_EQ(code(command({"models", "local", "--task", task, "--use", "second"})), 0);
  const auto record = command({"run", "--provider", "local", "--task", task, "SAY:hello"});
  EXPECT_EQ(code(record), 0) << record->output << record->error;
  EXPECT_THAT(record->output, HasSubstr("✓ Local finished the task."));

  const std::string profile = home / "data/vantrell/local-agent/grok";
  EXPECT_EQ(content("arguments"),
            "--disable-web-search\n--permission-mode\ndefault\nagent\n--model\nvantrell-local\n"
            "stdio\n");
  EXPECT_EQ(content("surroundings"),
            profile + "\nstub-bearer-for-offline-route\n" + project + "\n");
  EXPECT_EQ(tests::TemporaryFolder::contentOf(profile + "/config.toml"),
            "# Generated by vantrell. This isolated GROK_HOME never changes ~/.grok/config.toml.\n"
            "[model.vantrell-local]\nmodel = \"second\"\nbase_url = \"http://" +
                server.hostAndPort() +
                "/v1\"\nname = \"vantrell Local\"\nenv_key = \"VANTRELL_LOCAL_TOKEN\"\n"
                "api_backend = \"chat_completions\"\n\n[models]\ndefault = \"vantrell-local\"");
  EXPECT_EQ(content(".grok/config.toml"), "the user's own");
}

// ---- Tasklet ------------------------------------------------------------------------------------

TEST_F(ServicesProgram, TaskletTakesATaskOverASecretWebhook) {
  const tests::CertificateAuthority authority;
  std::mutex mutex;
  std::vector<tests::ReceivedRequest> received;
  HttpServer server(HttpServer::answering([&](tests::ServerConnection& connection,
                                              const tests::ReceivedRequest& request) {
                      const std::lock_guard lock(mutex);
                      received.push_back(request);
                      connection.answer(202, "");
                    }),
                    authority.server());
  const auto address = server.url("/hook/secret");
  auto record = command({"run", "--provider", "tasklet", "Do it"});
  EXPECT_EQ(code(record), 2);
  EXPECT_THAT(record->error, HasSubstr("vantrell settings set tasklet-webhook"));

  for (const std::string refused : {"http://127.0.0.1/hook", "", "ftp://x"}) {
    EXPECT_EQ(code(command({"settings", "set", "tasklet-webhook"}, refused + "\n")), 2);
  }
  EXPECT_EQ(code(command({"settings", "tasklet-webhook", address})), 2) << "not in a command line";
  EXPECT_EQ(command({"settings", "tasklet-webhook"})->output, "not set\n");
  EXPECT_EQ(code(command({"settings", "set", "tasklet-webhook"}, " " + address + " \n")), 0);
  EXPECT_EQ(command({"settings", "tasklet-webhook"})->output, "set\n");
  for (const std::vector<std::string>& words : {std::vector<std::string>{"settings"},
                                                {"settings", "--json"},
                                                {"settings", "export"},
                                                {"providers", "--json"}}) {
    EXPECT_THAT(command(words)->output, Not(HasSubstr("hook/secret"))) << words.back();
  }

  record = command({"run", "--provider", "tasklet", "Do it"});
  EXPECT_EQ(code(record), 1);
  EXPECT_THAT(record->output, HasSubstr("No secure connection")) << "a stranger's certificate";
  environment["SSL_CERT_FILE"] = home.file("authority.pem", authority.pem());
  record = command({"run", "--provider", "tasklet", "Do it"});
  EXPECT_EQ(code(record), 0) << record->output << record->error;
  EXPECT_THAT(record->output, HasSubstr("Tasklet accepted this background task."));
  {
    const std::lock_guard lock(mutex);
    ASSERT_EQ(received.size(), 1U);
    EXPECT_EQ(received[0].target, "/hook/secret");
    const auto body = json::parseObject(received[0].body);
    ASSERT_TRUE(body) << received[0].body;
    EXPECT_EQ(json::textOr(*body, "event", ""), "vantrell.task.requested");
    EXPECT_EQ(json::textOr(*body, "workspace", ""), "project");
    EXPECT_THAT(json::textOr(*body, "prompt", ""), testing::EndsWith("USER REQUEST:\nDo it"));
  }
  EXPECT_EQ(code(command({"settings", "reset", "tasklet-webhook"})), 0);
  EXPECT_EQ(command({"settings", "tasklet-webhook"})->output, "not set\n");
}

// ---- models, effort, usage ----------------------------------------------------------------------

TEST_F(ServicesProgram, ModelsOfCodexAreItsOwnAndAChoiceReachesTheTurn) {
  const std::string program = "exec '" + CodexAgentScript::program() + "' '";
  CodexAgentScript tells;
  tells.expect("initialize").result("{}").expect("initialized").expect("model/list");
  tells.send(R"({"id":2,"result":{"data":[{"model":"gpt-a","supportedReasoningEfforts":)"
             R"([{"reasoningEffort":"low"}]},{"model":"gpt-b"}]}})");
  tells.expectUsageRead().send(
      R"({"id":3,"result":{"rateLimits":{"primary":{"usedPercent":41.6}}}})");
  install(".local/bin/codex", program + home.file("tells", tells.hang().text()) + "'");
  EXPECT_THAT(models("codex"), ElementsAre("default", "gpt-a", "gpt-b"));
  const auto task = newTask();
  const std::tuple<std::vector<std::string>, int, std::string> cases[] = {
      {{"models", "codex", "--task", task, "--use", "gpt-c"}, 2, "Did you mean gpt-"},
      {{"models", "codex", "--use", "gpt-a"}, 2, "--task"},
      {{"models", "--task", task}, 2, "Name the provider too"},
      {{"models", "codx"}, 2, "Did you mean codex?"},
      {{"models", "codex", "--task", task, "--use", "gpt-a"}, 0, ""},
      {{"effort", "codex", "--task", task, "--use", "high"}, 2, "no effort"},
      {{"effort", "codex", "--task", task, "--use", "low"}, 0, ""},
      {{"usage", "--reset"}, 2, "a person at a terminal"},
      {{"usage", "kimi", "--reset"}, 2, "Only Codex has"},
  };
  for (const auto& [words, status, text] : cases) {
    const auto record = command(words);
    EXPECT_EQ(code(record), status) << words.back() << record->output << record->error;
    EXPECT_THAT(record->error, HasSubstr(text));
  }
  const auto chosen = object({"models", "codex", "--task", task, "--json"});
  EXPECT_EQ(json::textOr(*json::object(chosen, "chosen"), "model", ""), "gpt-a");
  EXPECT_EQ(json::textOr(*json::object(chosen, "chosen"), "effort", ""), "low");
  EXPECT_THAT(command({"usage"})->output, HasSubstr("42% used"));

  CodexAgentScript works;
  works.openThread().expect(R"("model":"gpt-a","effort":"low")").result(R"({"turn":{"id":"t"}})");
  works.notify("account/rateLimits/updated",
               R"({"rateLimits":{"primary":{"usedPercent":77,"resetsAt":1900000000}}})");
  install(".local/bin/codex", program + home.file("works", works.endTurn("t").hang().text()) + "'");
  const auto record = command({"run", "--provider", "codex", "--task", task, "Go"});
  EXPECT_EQ(code(record), 0) << record->output << record->error;
  std::filesystem::remove(home / ".local/bin/codex");
  const auto usage = json::parse(command({"usage", "codex", "--json"})->output);
  ASSERT_TRUE(usage && usage->asArray());
  const auto& row = *usage->asArray()->at(0).asObject();
  EXPECT_EQ(json::object(row, "now"), nullptr) << "nobody tells it now";
  EXPECT_EQ(json::number(*json::object(row, "lastReported"), "usedPercent"), 77);

  install(".local/bin/codex", program + (home / "tells") + "'");
  EXPECT_EQ(code(command({"models", "codex", "--task", task, "--use", "default"})), 0);
  EXPECT_EQ(json::textOr(*json::object(object({"models", "--task", task, "--json"}), "chosen"),
                         "effort", ""),
            "default")
      << "the effort went with the model";
}

}  // namespace
}  // namespace vantrell
