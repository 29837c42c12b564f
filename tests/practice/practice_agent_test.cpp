#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <vector>

#include "practice/practice_host.h"
#include "support/temporary_folder.h"

namespace vantrell::practice {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using tests::TemporaryFolder;

class PracticeAgent : public testing::Test {
 protected:
  TemporaryFolder state;
  TemporaryFolder project;
  PracticeHost host{state.path()};

  void SetUp() override { host.open(project.path()); }

  std::string sessionFile() const {
    return state / "vantrell-practice-agent/" + host.sessionId + ".json";
  }
  void setOption(std::string_view id, std::string_view value) {
    auto set = host.call("session/set_config_option",
                         {{"sessionId", host.sessionId}, {"configId", id}, {"value", value}});
    ASSERT_TRUE(set) << set.error();
  }
};

JsonObject selected(std::string_view optionId) {
  return {{"outcome", JsonObject{{"outcome", "selected"}, {"optionId", optionId}}}};
}

std::vector<std::string> messageIds(const std::vector<JsonObject>& chunks) {
  std::vector<std::string> ids;
  for (const auto& chunk : chunks) ids.push_back(json::textOr(chunk, "messageId", ""));
  ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
  return ids;
}

TEST(PracticeAgentStart, SpeaksTheProtocolWhateverArgumentsAHostGives) {
  TemporaryFolder state;
  const std::vector<std::string> vectors[] = {
      {},
      {"acp"},
      {"acp", "--cwd", "/somewhere"},
      {"--permission-mode", "default", "agent", "stdio"},
      {"agent", "--model", "x", "--always-approve", "stdio"},
      {"--disable-web-search", "--permission-mode", "auto", "agent", "--model", "x", "stdio"},
  };
  for (const auto& arguments : vectors) {
    PracticeHost host(state.path(), arguments);
    auto result = host.call("initialize", {{"protocolVersion", 1}});
    ASSERT_TRUE(result) << result.error();
    EXPECT_EQ(json::integer(*result, "protocolVersion"), 1);
    const auto* abilities = json::object(*result, "agentCapabilities");
    ASSERT_TRUE(abilities);
    EXPECT_EQ(json::boolean(*abilities, "loadSession"), true);
  }
}

TEST_F(PracticeAgent, RefusesWhatItCannotDoAndStaysUsable) {
  host.write("no JSON at all\n[1,2]\n\n");
  EXPECT_THAT(host.call("session/fork", {}).error(), HasSubstr("session/fork"));
  EXPECT_FALSE(host.call("session/new", {{"cwd", "relative"}}));
  EXPECT_FALSE(
      host.call("session/prompt", {{"sessionId", "elsewhere"}, {"prompt", Json::Array{}}}));
  EXPECT_FALSE(host.call("session/prompt", {{"sessionId", host.sessionId}}));
  for (const char* value : {"manual", "nonsense"}) {
    EXPECT_FALSE(
        host.call("session/set_config_option",
                  {{"sessionId", host.sessionId}, {"configId", "model"}, {"value", value}}));
  }
  EXPECT_EQ(host.prompt("SAY:still here"), "end_turn");
  const auto first = host.sendPrompt("HANG");
  EXPECT_THAT(host.prompt("SAY:x"), HasSubstr("still running"));
  host.cancel();
  EXPECT_EQ(host.stopReason(first), "cancelled");
}

TEST_F(PracticeAgent, SaysHonestlyThatNoModelReadAPrompt) {
  EXPECT_EQ(host.prompt("STYLE\nUSER REQUEST:\nPlease fix the bug."), "end_turn");
  EXPECT_THAT(host.said(), HasSubstr("no model"));
  EXPECT_THAT(host.said(), HasSubstr("\nSAY:"));
  EXPECT_EQ(host.prompt("help"), "end_turn");
  EXPECT_THAT(host.said(), HasSubstr("GARBAGE:"));
}

TEST_F(PracticeAgent, StreamsAMessageInSeveralChunks) {
  EXPECT_EQ(host.prompt("SAY:Grüße an alle,\\ndie das lesen\nTHINK:hm hm hm hm"), "end_turn");
  EXPECT_EQ(host.said(), "Grüße an alle,\ndie das lesen");
  EXPECT_EQ(host.said("agent_thought_chunk"), "hm hm hm hm");
  auto chunks = host.updatesOf("agent_message_chunk");
  EXPECT_GT(chunks.size(), 2U);
  EXPECT_EQ(messageIds(chunks).size(), 1U);
}

TEST_F(PracticeAgent, AdvancesAPlanWithTheDirectivesBehindIt) {
  EXPECT_EQ(host.prompt("PLAN:a;b\nSAY:1\nSAY:2\nSAY:3"), "end_turn");
  std::vector<std::string> states;
  for (const auto& plan : host.updatesOf("plan")) {
    std::string statuses;
    for (const auto& entry : *json::array(plan, "entries")) {
      statuses += json::textOr(*entry.asObject(), "status", "none") + " ";
    }
    states.push_back(statuses);
  }
  EXPECT_THAT(states, ElementsAre("pending pending ", "in_progress pending ",
                                  "completed in_progress ", "completed completed "));
}

TEST_F(PracticeAgent, SaysWhatIsWrongWithADirectiveInsteadOfGuessing) {
  setOption("model", "practice-instant");
  for (const std::string line : {"SLOW:soon",
                                 "SLOW:-1",
                                 "SLOW:0",
                                 "SLOW:nan",
                                 "SLOW:inf",
                                 "SLOW:1e99",
                                 "DIE:x",
                                 "DIE:0",
                                 "DIE:65",
                                 "WRITE:no-content",
                                 "WRITE:=x",
                                 "PLAN:;;",
                                 "READ:  ",
                                 "STREAM:",
                                 "FLOOD:1000",
                                 "FLOOD:stdout=0",
                                 "FLOOD:stdout=99999999999999999999",
                                 "GARBAGE:other",
                                 "GARBAGE:long=0",
                                 "CLOSE:stdout"}) {
    host.updates.clear();
    EXPECT_EQ(host.prompt(line), "end_turn") << line;
    EXPECT_THAT(host.said(), testing::StartsWith(line.substr(0, line.find(':')) + " ")) << line;
    EXPECT_THAT(host.said(), testing::EndsWith("lists the directives.")) << line;
  }
}

TEST_F(PracticeAgent, AsksAndSaysWhatWasAnswered) {
  const struct {
    const char* option;
    const char* words;
    const char* status;
  } cases[] = {{"allow_once", "You answered: Allow once.", "pending completed"},
               {"allow_always", "You answered: Allow always.", "pending completed"},
               {"reject_once", "You answered: Reject.", "pending failed"},
               {"made-up", "You answered: made-up.", "pending failed"}};
  for (const auto& [option, words, status] : cases) {
    host.updates.clear();
    host.services = [option = option](const std::string&, const JsonObject& params) {
      EXPECT_EQ(json::textOr(*json::object(params, "toolCall"), "title", ""), "May I?");
      EXPECT_EQ(json::array(params, "options")->size(), 3U);
      return selected(option);
    };
    EXPECT_EQ(host.prompt("ASK:May I?"), "end_turn");
    EXPECT_EQ(host.said(), words);
    EXPECT_EQ(host.toolStatuses(), status);
  }
}

TEST_F(PracticeAgent, ReadsAFileOfTheProjectThroughTheHost) {
  host.services = [&](const std::string&, const JsonObject& params) {
    EXPECT_EQ(json::textOr(params, "path", ""), project / "notes/a.txt");
    return JsonObject{{"content", "one\n```\nthree"}};
  };
  EXPECT_EQ(host.prompt("READ:notes/../notes/a.txt"), "end_turn");
  EXPECT_THAT(host.requests, ElementsAre("fs/read_text_file"));
  EXPECT_THAT(host.said(), HasSubstr("3 lines, 13 bytes"));
  EXPECT_THAT(host.said(), HasSubstr("````\none\n```\nthree\n````"));  // its fence stays inside
}

TEST_F(PracticeAgent, WritesOnlyWhatIsAllowed) {
  const char* answer = "reject_once";
  std::vector<std::string> written;
  host.services = [&](const std::string& method, const JsonObject& params) {
    if (method == "session/request_permission") return selected(answer);
    written.push_back(json::textOr(params, "content", ""));
    return JsonObject();
  };
  EXPECT_EQ(host.prompt("WRITE:a.txt=1"), "end_turn");
  EXPECT_THAT(written, IsEmpty());
  EXPECT_EQ(host.toolStatuses(), "pending failed");

  answer = "allow_once";
  host.prompt("WRITE:a.txt=2");
  answer = "allow_always";
  host.prompt("WRITE:a.txt=3\nWRITE:a.txt=4");
  EXPECT_THAT(written, ElementsAre("2", "3", "4"));
  EXPECT_EQ(std::ranges::count(host.requests, "session/request_permission"), 3);
}

TEST_F(PracticeAgent, AsksNobodyInTheModesThatDoNotAsk) {
  host.services = [](const std::string&, const JsonObject&) { return JsonObject(); };
  for (const char* mode : {"auto", "yolo"}) {
    setOption("mode", mode);
    host.requests.clear();
    EXPECT_EQ(host.prompt("WRITE:a.txt=x"), "end_turn");
    EXPECT_THAT(host.requests, ElementsAre("fs/write_text_file")) << mode;
  }
  setOption("mode", "manual");
  auto made = host.call("session/new",
                        {{"cwd", project.path()}, {"_meta", JsonObject{{"yoloMode", true}}}});
  ASSERT_TRUE(made);
  host.sessionId = json::textOr(*made, "sessionId", "");
  host.requests.clear();
  EXPECT_EQ(host.prompt("WRITE:a.txt=x"), "end_turn");
  EXPECT_THAT(host.requests, ElementsAre("fs/write_text_file"));
}

TEST_F(PracticeAgent, RunsACommandInTheHostsTerminal) {
  int exitCode = 0;
  host.services = [&](const std::string& method, const JsonObject& params) {
    if (method == "session/request_permission") return selected("allow_once");
    if (method == "terminal/create") {
      EXPECT_EQ(json::textOr(params, "cwd", ""), project.path());
      EXPECT_EQ(json::textOr(params, "command", ""), "sh");
      EXPECT_EQ(*json::array(params, "args"), (Json::Array{"-c", "make all"}));
      return JsonObject{{"terminalId", "t1"}};
    }
    EXPECT_EQ(json::textOr(params, "terminalId", ""), "t1");
    if (method == "terminal/wait_for_exit") return JsonObject{{"exitCode", exitCode}};
    if (method == "terminal/output") return JsonObject{{"output", "built\n"}, {"truncated", false}};
    return JsonObject();
  };
  EXPECT_EQ(host.prompt("RUN:make all"), "end_turn");
  EXPECT_THAT(host.requests,
              ElementsAre("session/request_permission", "terminal/create", "terminal/wait_for_exit",
                          "terminal/output", "terminal/release"));
  EXPECT_EQ(host.toolStatuses(), "pending in_progress completed");
  EXPECT_THAT(host.said(), HasSubstr("status 0.\n\n```\nbuilt\n```"));

  exitCode = 2;
  host.prompt("RUN:make all");
  EXPECT_THAT(host.said(), HasSubstr("status 2"));
  EXPECT_THAT(host.toolStatuses(), testing::EndsWith("failed"));
}

TEST_F(PracticeAgent, TellsWhatTheHostRefusedAndGoesOn) {
  setOption("mode", "auto");
  EXPECT_EQ(host.prompt("READ:a\nWRITE:a=b\nRUN:c\nASK:d\nSAY:the end"), "end_turn");
  auto said = host.said();
  for (const char* words :
       {"fs/read_text_file: not here", "fs/write_text_file: not here", "run the command: not here",
        "request_permission: not here", "the end"}) {
    EXPECT_THAT(said, HasSubstr(words));
  }
}

TEST_F(PracticeAgent, CancelEndsATurnWhateverItWaitsFor) {
  host.services = [](const std::string& method, const JsonObject&) -> std::optional<JsonObject> {
    if (method == "terminal/create") return JsonObject{{"terminalId", "t1"}};
    return std::nullopt;
  };
  setOption("mode", "auto");
  const struct {
    const char* directive;
    const char* request;  // that shows that it waits; none: the first update does
  } cases[] = {{"SLOW:0.001", nullptr},
               {"SAY:x\nHANG", nullptr},
               {"ASK:well?", "session/request_permission"},
               {"READ:a", "fs/read_text_file"},
               {"RUN:sleep 100", "terminal/wait_for_exit"},
               {"FLOOD:stdout=1073741824", nullptr}};
  for (const auto& [directive, request] : cases) {
    host.updates.clear();
    host.requests.clear();
    auto id = host.sendPrompt(directive);
    host.waitUntil([&] {
      return request ? std::ranges::count(host.requests, request) > 0 : !host.updates.empty();
    });
    host.cancel();
    EXPECT_EQ(host.stopReason(id), "cancelled") << directive;
    EXPECT_THAT(host.toolStatuses(), Not(testing::EndsWith("in_progress"))) << directive;
    if (std::string_view(directive).starts_with("RUN")) {
      host.waitUntil([&] { return std::ranges::count(host.requests, "terminal/release") > 0; });
      EXPECT_THAT(host.requests, Contains("terminal/kill"));
    }
  }
  EXPECT_EQ(host.prompt("SAY:usable"), "end_turn");
}

TEST_F(PracticeAgent, EndsTurnsWithErrorsAndRefusals) {
  EXPECT_EQ(host.prompt("SAY:a\nFAIL:usage limit reached\nSAY:b"), "error: usage limit reached");
  EXPECT_EQ(host.prompt("REFUSE:not this\nSAY:b"), "refusal");
  EXPECT_EQ(host.said(), "anot this");
}

TEST_F(PracticeAgent, ReplaysTheHistoryInANewProcess) {
  host.services = [](const std::string&, const JsonObject&) { return selected("allow_once"); };
  setOption("model", "practice-instant");
  host.prompt("THINK:first this\nSAY:then that\nASK:ok?");
  struct stat info{};
  ASSERT_EQ(::stat(sessionFile().c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600U);

  PracticeHost again(state.path());
  auto loaded = again.call(
      "session/load",
      {{"sessionId", host.sessionId}, {"cwd", project.path()}, {"mcpServers", Json::Array{}}});
  ASSERT_TRUE(loaded) << loaded.error();
  EXPECT_EQ(again.said("user_message_chunk"), "THINK:first this\nSAY:then that\nASK:ok?");
  EXPECT_EQ(again.said("agent_thought_chunk"), "first this");
  EXPECT_EQ(again.said(), host.said());
  EXPECT_EQ(again.toolStatuses(), "completed");
  EXPECT_EQ(messageIds(again.updatesOf("agent_message_chunk")),
            messageIds(host.updatesOf("agent_message_chunk")));
  const auto& model = *(*json::array(*loaded, "configOptions"))[1].asObject();
  EXPECT_EQ(json::textOr(model, "currentValue", ""), "practice-instant");
  again.sessionId = host.sessionId;
  EXPECT_EQ(again.prompt("SAY:on we go"), "end_turn");
}

TEST_F(PracticeAgent, KeepsWhatATurnSaidWhenItsHostGoesAway) {
  auto id = host.sendPrompt("SAY:half of it\nRUN:sleep 100");
  host.services = [](const std::string&, const JsonObject&) { return std::nullopt; };
  host.waitUntil([&] { return !host.requests.empty(); });
  host.process().closeInput();
  EXPECT_EQ(host.waitForExit().code(), 0);
  EXPECT_EQ(host.stopReason(id), "error: no answer");

  PracticeHost again(state.path());
  ASSERT_TRUE(again.call("session/load", {{"sessionId", host.sessionId}}));
  EXPECT_EQ(again.said(), "half of it");
  EXPECT_EQ(again.toolStatuses(), "failed");  // it will not go on
}

TEST_F(PracticeAgent, RefusesSessionsThatAreUnknownOrDamaged) {
  for (const char* id :
       {"", "nonsense", "../../etc/passwd", "2D3B4A5C-0000-4000-8000-000000000000"}) {
    auto loaded = host.call("session/load", {{"sessionId", id}});
    ASSERT_FALSE(loaded) << id;
    EXPECT_THAT(loaded.error(), HasSubstr("no session"));
  }
  host.prompt("SAY:x");
  auto good = TemporaryFolder::contentOf(sessionFile());
  auto withoutKind = good;
  withoutKind.replace(good.find("sessionUpdate"), 13, "somethingElse");
  for (const auto& content : {std::string(), good.substr(0, good.size() / 2), std::string("[]"),
                              std::string("{}"), withoutKind}) {
    state.file("vantrell-practice-agent/" + host.sessionId + ".json", content);
    auto loaded = host.call("session/load", {{"sessionId", host.sessionId}});
    ASSERT_FALSE(loaded) << content;
    EXPECT_THAT(loaded.error(), HasSubstr("damaged"));
  }
}

TEST_F(PracticeAgent, DiesAfterAChunkInTheWayAsked) {
  for (const auto& [directive, code] : {std::pair("DIE", 1), std::pair("DIE:9", 128 + SIGKILL),
                                        std::pair("DIE:11", 128 + SIGSEGV)}) {
    PracticeHost victim(state.path());
    victim.open(project.path());
    victim.sendPrompt(directive);
    EXPECT_EQ(victim.waitForExit().code(), code) << directive;
    EXPECT_FALSE(victim.said().empty()) << directive;
  }
}

TEST_F(PracticeAgent, FloodsWithExactlySoManyBytes) {
  EXPECT_EQ(host.prompt("FLOOD:stdout=1000001"), "end_turn");
  EXPECT_EQ(host.said().size(), 1000001U);
  EXPECT_GT(host.updates.size(), 10000U);
  EXPECT_EQ(host.prompt("FLOOD:stderr=300001"), "end_turn");
  host.waitUntil([&] { return host.errors.size() >= 300001; });
  EXPECT_EQ(host.errors.size(), 300001U);
}

TEST_F(PracticeAgent, BreaksTheProtocolAsAsked) {
  EXPECT_EQ(host.prompt("GARBAGE:utf8\nGARBAGE:text\nGARBAGE:long=1000000\nSAY:after"), "end_turn");
  ASSERT_EQ(host.strange.size(), 3U);
  EXPECT_THAT(host.strange[0], HasSubstr("\xFF"));
  EXPECT_EQ(host.strange[2].size(), 1000000U);
  EXPECT_EQ(host.said(), "after");

  host.sendPrompt("GARBAGE:half");
  EXPECT_EQ(host.waitForExit().code(), 1);
  EXPECT_FALSE(host.rest.empty());
}

TEST_F(PracticeAgent, GoesOnAfterClosingItsInput) {
  EXPECT_EQ(host.prompt("CLOSE:stdin\nSAY:gone deaf"), "end_turn");
  host.write("anything\n");
  host.waitUntil([&] { return host.writeError.has_value(); });
  EXPECT_FALSE(host.exit);
}

TEST_F(PracticeAgent, EndOfInputEndsItEvenWhenNobodyReads) {
  host.process().pauseReading();
  host.sendPrompt("FLOOD:stdout=1073741824");
  host.process().closeInput();
  EXPECT_EQ(host.waitForExit().code(), 0);
}

}  // namespace
}  // namespace vantrell::practice
