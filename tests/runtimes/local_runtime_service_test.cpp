#include "runtimes/local/local_runtime_service.h"

#include <array>
#include <cstdio>
#include <gmock/gmock.h>

#include "platform/storage/user_defaults.h"
#include "platform/values/json.h"
#include "support/temporary_folder.h"

namespace vantrell {
namespace {

using namespace LocalRuntimeService;
using enum LocalRuntimeKind;

TEST(LocalRuntimeService, AnUnknownKindIsTheAutomaticOne) {
  const auto defaults = UserDefaults::inMemory();
  defaults->setText(kindKey, "LM Studio");
  EXPECT_EQ(configuredKind(*defaults), automatic);
}

TEST(LocalRuntimeService, AllowsPlainHttpOnlyToThisMachineAndPrivateNetworks) {
  using Texts = std::vector<std::string>;
  const std::pair<std::optional<LocalRuntimeError>, Texts> cases[]{
      {std::nullopt,
       Texts{"http://localhost:11434", "HTTP://LocalHost", "http://[::1]:1234/v1",
             "http://127.0.0.1", "http://127.9.9.9", "http://10.1.2.3", "http://192.168.0.7",
             "http://172.16.0.1", "http://172.31.255.255", "http://box.local",
             "https://example.com", " \n https://example.com/v1 \n"}},
      {LocalRuntimeError::insecureRemoteURL,
       Texts{"http://192.169.0.7", "http://172.15.0.1", "http://172.32.0.1", "http://172.x.0.1",
             "http://172.", "http://1720.16.0.1", "http://box.local.example.com",
             "http://localhost.example.com", "http://example.com", "http://127.0.0.1@example.com",
             "http://[::ffff:8.8.8.8]"}},
      {LocalRuntimeError::invalidURL, Texts{"", "localhost:11434", "http:///v1", "ftp://localhost",
                                            "http://local host", "file:///tmp"}},
  };
  for (const auto& [expected, texts] : cases) {
    for (const auto& text : texts) {
      const auto result = validatedBaseURL(text);
      EXPECT_EQ(result ? std::nullopt : std::optional(result.error()), expected) << text;
    }
  }
}

std::vector<std::string> shown(LocalRuntimeKind kind, std::string_view configured) {
  const auto probes = candidateProbes(kind, configured);
  if (!probes) return {std::string(description(probes.error()))};
  std::vector<std::string> lines;
  for (const auto& probe : *probes) {
    lines.push_back(std::string(rawText(probe.kind)) + ", " + probe.name + ": " +
                    probe.discoveryURL.text() + " " + probe.apiBaseURL.text());
  }
  return lines;
}

TEST(LocalRuntimeService, LooksInTheRightPlaces) {
  const auto ollamaAt = [](const std::string& base, const std::string& query = "") {
    return "ollama, Ollama: " + base + "/api/tags" + query + " " + base + "/v1" + query;
  };
  const auto openAIAt = [](const std::string& name, const std::string& base) {
    return name + ": " + base + "/v1/models " + base + "/v1";
  };
  const auto ollamaHere = ollamaAt("http://127.0.0.1:11434");
  const auto lmStudioHere = openAIAt("lm_studio, LM Studio", "http://127.0.0.1:1234");
  const std::string invalid = "Enter a valid local runtime URL.";
  struct Case {
    LocalRuntimeKind kind;
    std::string configured;
    std::vector<std::string> places;
  };
  for (const auto& each : {
           Case{automatic, "", {ollamaHere, lmStudioHere}},
           Case{ollama, "", {ollamaHere}},
           Case{lmStudio, "", {lmStudioHere}},
           // The text as it is stored decides whether there is one.
           Case{ollama, " ", {invalid}},
           Case{custom, "", {invalid}},
           Case{custom,
                "http://example.com",
                {"Non-HTTPS runtimes must use localhost or a private-network address."}},
           Case{ollama, "http://box.local:1", {ollamaAt("http://box.local:1")}},
           Case{ollama, "http://box.local:1/v1", {ollamaAt("http://box.local:1")}},
           Case{ollama, "http://box.local:1/V1/", {ollamaAt("http://box.local:1")}},
           Case{ollama, "https://h/proxy/v1?key=1", {ollamaAt("https://h/proxy", "?key=1")}},
           Case{custom,
                " http://10.0.0.1/ ",
                {openAIAt("custom, Local runtime", "http://10.0.0.1")}},
           Case{custom,
                "https://h/openai/",
                {"custom, Local runtime: https://h/openai/models https://h/openai/"}},
       }) {
    EXPECT_EQ(shown(each.kind, each.configured), each.places) << each.configured;
  }
}

TEST(LocalRuntimeService, ReadsTheModelsThatAServerLists) {
  const std::string notJson = "no JSON";
  struct Case {
    LocalRuntimeKind kind;
    std::string body;
    std::vector<std::string> models;
  };
  const Case cases[]{
      {ollama,
       R"({"models":[{"name":" b "},{"name":"a","model":"x"},{"name":"b\n"}]})",
       {"a", "b"}},
      {lmStudio, R"({"object":"list","data":[{"id":"qwen","object":"model"}]})", {"qwen"}},
      {custom, R"({"data":[{"id":"i","model":"m"},{"model":"n","id":"x"}]})", {"m", "n"}},
      {custom,
       R"({"data":[{"name":7,"model":null,"id":"i"},{"name":" ","id":"lost"},{},3]})",
       {"i"}},
      {ollama, R"({"data":[{"id":"wrong list"}]})", {}},
      {lmStudio, R"({"data":{"id":"no list"}})", {}},
      {lmStudio, R"({"data":[]})", {}},
      {lmStudio, R"([{"id":"no object"}])", {}},
      {lmStudio, "<html>", {notJson}},
      {lmStudio, R"({"data":[{"id":"cut)", {notJson}},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.body);
    const auto models = parseModels(one.body, one.kind);
    std::vector<std::string> ids;
    if (!models) ids = {notJson};
    for (const auto& model : models.value_or(std::vector<ProviderModelOption>())) {
      ids.push_back(model.id);
      EXPECT_EQ(model.detail, "Served locally through " + std::string(displayName(one.kind)) + ".");
    }
    EXPECT_EQ(ids, one.models);
  }
}

LocalRuntimeConnection connection(const std::string& url, const std::vector<std::string>& models) {
  LocalRuntimeConnection made{lmStudio, "LM Studio", *Url::parse(url), {}};
  for (const auto& id : models) made.models.push_back({id, id, "", false, {}});
  return made;
}

TEST(LocalRuntimeService, TellsWhenTheProfileCannotBeWritten) {
  const tests::TemporaryFolder root;
  root.file("vantrell", "a file in the way");
  const auto environment =
      prepareGrokEnvironment({}, connection("http://h.local", {"m"}), "m", root.path());
  ASSERT_FALSE(environment);
  EXPECT_THAT(environment.error().description, testing::HasSubstr(root / "vantrell"));
}

/// What another reader of the format finds in the files: a JSON array, or nothing when one is
/// ill-formed.
std::string readByPython(const std::vector<std::string>& paths) {
  std::string command =
      "python3 -c 'import json, sys, tomllib; "
      "print(json.dumps([tomllib.load(open(path, \"rb\")) for path in sys.argv[1:]]))'";
  for (const auto& path : paths) command += " " + path;
  std::string out;
  FILE* pipe = ::popen(command.c_str(), "r");
  std::array<char, 4096> bytes{};
  while (const auto count = std::fread(bytes.data(), 1, bytes.size(), pipe)) {
    out.append(bytes.data(), count);
  }
  ::pclose(pipe);
  return out;
}

TEST(LocalRuntimeService, LeavesTheProfileWellFormedWhateverTheModelIsCalled) {
  const tests::TemporaryFolder root;
  const auto server = connection("http://127.0.0.1:1234/v1?a='b'", {});
  const std::vector<std::string> models{"plain",
                                        R"(a "quoted" \ name)",
                                        "\\",
                                        "\"\n[models]\ndefault = \"other",
                                        "\r\n\t\b\x1F\x7F",
                                        std::string("a\0b", 3),
                                        "größe 🙂",
                                        "\\n\\u0041"};
  std::vector<std::string> paths;
  for (const auto& model : models) {
    paths.push_back(root.file(std::to_string(paths.size()), profileText(server, model)));
  }
  const auto read = json::parse(readByPython(paths));
  ASSERT_TRUE(read);
  ASSERT_EQ(read->asArray()->size(), models.size());
  for (std::size_t index = 0; index < models.size(); ++index) {
    SCOPED_TRACE(testing::PrintToString(models[index]));
    const auto& content = *(*read->asArray())[index].asObject();
    const auto* profile = json::object(*json::object(content, "model"), "vantrell-local");
    ASSERT_TRUE(profile);
    EXPECT_EQ(*json::text(*profile, "model"), models[index]);
    EXPECT_EQ(*json::text(*profile, "base_url"), "http://127.0.0.1:1234/v1?a='b'");
    EXPECT_EQ(*json::text(*json::object(content, "models"), "default"), "vantrell-local");
  }
}

}  // namespace
}  // namespace vantrell
