#include "records/stores/conversation_json.h"

#include <gtest/gtest.h>

#include "platform/text/text.h"

namespace vantrell {
namespace {

constexpr std::string_view attachmentJson =
    R"({"id":"00000000-0000-0000-0000-0000000000A1","displayName":"a.png","path":"img/a.png",)"
    R"("kind":"image","contentType":"image/png","byteCount":12})";
constexpr std::string_view entryHead =
    R"({"id":"m-1","kind":"tool","text":"{}","title":"Run","status":"pending",)"
    R"("provider":"codex","attachments":[)";
constexpr std::string_view checkpointJson =
    R"({"id":"00000000-0000-0000-0000-0000000000C1","label":"Before: x","kind":"recovery",)"
    R"("createdAt":1.5,"baseRevision":"abc","archivePath":"/a.tar","conversationEntryCount":3,)"
    R"("sourceMessageID":"m-1","changedFileCount":2})";
constexpr std::string_view runJson =
    R"({"id":"00000000-0000-0000-0000-0000000000D1","prompt":"p","provider":"claude",)"
    R"("modelID":"m","effort":"high","status":"waitingApproval","statusMessage":"s",)"
    R"("routingReason":"r","startedAt":1,"updatedAt":2,"lastActivityAt":3,"completedAt":4})";
constexpr std::string_view importedJson =
    R"({"provider":"kimi","sessionID":"k1","sourceLabel":"Kimi","activity":"recent",)"
    R"("importedAt":5,"lastSeenAt":6})";

/// A tree in which every field of every record is present, in the stored order.
std::string fullDocument() {
  const std::string attachment(attachmentJson);
  return R"([{"id":"00000000-0000-0000-0000-000000000001","name":"Work","path":"/work","threads":[)"
         R"({"id":"00000000-0000-0000-0000-000000000002","title":"T","sessionId":"g1",)"
         R"("providerSessionIDs":{"codex":"c1","grok":"g1"},"providerModelIDs":{"codex":"m1"},)"
         R"("providerEfforts":{"codex":"high"},"lastProvider":"tasklet","importedSession":)" +
         std::string(importedJson) + R"(,"draftText":"d","draftAttachments":[)" + attachment +
         R"(],"workspaceMode":"isolated","isolatedWorkspacePath":"/w","checkpoints":[)" +
         std::string(checkpointJson) +
         R"(],"preferredProvider":"glm","nextMessageProvider":"local",)"
         R"("comparisonGroupID":"00000000-0000-0000-0000-000000000003","entries":[)" +
         std::string(entryHead) + attachment +
         R"(],"createdAt":7.25}],"queuedPrompts":[{"id":"00000000-0000-0000-0000-0000000000B1",)"
         R"("text":"q","attachments":[)" +
         attachment + R"(],"createdAt":8}],"runs":[)" + std::string(runJson) +
         R"(],"createdAt":9,"updatedAt":10,"isPinned":true,"isArchived":true}],"isPinned":true}])";
}

std::string errorOf(std::string_view document) {
  const auto decoded = decodeWorkspaces(document, conversationJson);
  return decoded ? "none" : decoded.error().text();
}

TEST(ConversationJson, EveryFieldComesBackUnderItsKeyInTheStoredOrder) {
  const auto decoded = decodeWorkspaces(fullDocument(), conversationJson);
  ASSERT_TRUE(decoded) << decoded.error().text();
  EXPECT_EQ(encodeWorkspaces(*decoded, conversationJson), fullDocument());

  // A pair of swapped members would survive the round trip.
  const ChatThread& thread = decoded->front().threads.front();
  EXPECT_EQ(thread.preferredProvider, AgentProvider::glm);
  EXPECT_EQ(thread.nextMessageProvider, AgentProvider::local);
  EXPECT_EQ(thread.createdAt, Date(9));
  EXPECT_EQ(thread.updatedAt, Date(10));
  EXPECT_EQ(thread.providerEfforts->at("codex"), "high");
  EXPECT_EQ(thread.runs.front().lastActivityAt, Date(3));
  EXPECT_EQ(thread.runs.front().completedAt, Date(4));
  EXPECT_EQ(thread.runs.front().status, RunRecordStatus::waitingApproval);
  EXPECT_EQ(thread.entries[0].title, "Run");
  EXPECT_EQ(thread.entries[0].status, "pending");
  EXPECT_EQ(thread.checkpoints.front().conversationEntryCount, 3);
  EXPECT_EQ(thread.checkpoints.front().changedFileCount, 2);
}

// ---- required, absent, default ------------------------------------------------------------------

struct RecordRules {
  std::string_view record;
  std::string_view place;  // of one such record in the full document, as error messages name it
  std::string_view required;
  std::string_view absentAllowed;
  /// A key and what stands for it when it is missing.
  std::vector<std::pair<std::string_view, std::string_view>> byDefault = {};

  std::vector<std::string_view> keys() const {
    std::vector<std::string_view> all = words(required);
    for (const auto key : words(absentAllowed)) all.push_back(key);
    for (const auto& [key, json] : byDefault) all.push_back(key);
    return all;
  }
  static std::vector<std::string_view> words(std::string_view text) {
    return text.empty() ? std::vector<std::string_view>() : text::split(text, ' ');
  }
};

const std::vector<RecordRules> allRules{
    {"Workspace", "0", "id name path threads", "", {{"isPinned", "false"}}},
    {"ChatThread",
     "0.threads.0",
     "id title entries createdAt updatedAt",
     "sessionId providerSessionIDs providerModelIDs providerEfforts lastProvider importedSession "
     "draftText isolatedWorkspacePath preferredProvider nextMessageProvider comparisonGroupID",
     {{"draftAttachments", "[]"},
      {"workspaceMode", R"("shared")"},
      {"checkpoints", "[]"},
      {"queuedPrompts", "[]"},
      {"runs", "[]"},
      {"isPinned", "false"},
      {"isArchived", "false"}}},
    {"ChatEntry",
     "0.threads.0.entries.0",
     "id kind text createdAt",
     "title status provider",
     {{"attachments", "[]"}}},
    {"ChatAttachment", "0.threads.0.draftAttachments.0", "id displayName path kind",
     "contentType byteCount"},
    {"QueuedPrompt",
     "0.threads.0.queuedPrompts.0",
     "id text createdAt",
     "",
     {{"attachments", "[]"}}},
    {"RunRecord", "0.threads.0.runs.0", "id prompt status startedAt updatedAt",
     "provider modelID effort statusMessage routingReason lastActivityAt completedAt"},
    {"WorkspaceCheckpoint", "0.threads.0.checkpoints.0",
     "id label kind createdAt archivePath conversationEntryCount changedFileCount",
     "baseRevision sourceMessageID"},
    {"ImportedSessionReference", "0.threads.0.importedSession",
     "provider sessionID sourceLabel activity importedAt lastSeenAt", ""},
};

JsonObject& recordAt(Json& document, std::string_view place) {
  Json* at = &document;
  while (!place.empty()) {
    const std::string step(place.substr(0, place.find('.')));
    place.remove_prefix(std::min(place.size(), step.size() + 1));
    at = at->asArray() ? &(*at->asArray())[std::stoul(step)] : at->asObject()->find(step);
  }
  return *at->asObject();
}

class RecordKeys : public testing::TestWithParam<RecordRules> {};

TEST_P(RecordKeys, MissingAndNullKeysFollowTheRulesOfTheRecord) {
  const auto& rules = GetParam();
  const auto required = RecordRules::words(rules.required);
  Json full = *json::parse(fullDocument());
  EXPECT_EQ(recordAt(full, rules.place).size(), rules.keys().size()) << "a key without a rule";
  for (const auto key : rules.keys()) {
    for (const bool asNull : {false, true}) {
      SCOPED_TRACE(std::string(key) + (asNull ? " null" : " missing"));
      Json document = full;
      JsonObject& record = recordAt(document, rules.place);
      ASSERT_TRUE(record.remove(key)) << "the full document lacks the key";
      if (asNull) record.set(std::string(key), nullptr);

      const auto decoded = decodeWorkspaces(json::write(document), conversationJson);
      if (std::ranges::count(required, key) > 0) {
        ASSERT_FALSE(decoded);
        EXPECT_EQ(decoded.error().text(),
                  std::string(rules.place) + "." + std::string(key) + ": missing");
        continue;
      }
      ASSERT_TRUE(decoded) << decoded.error().text();
      Json written = *json::parse(encodeWorkspaces(*decoded, conversationJson));
      const Json* value = recordAt(written, rules.place).find(key);
      const auto standIn =
          std::ranges::find(rules.byDefault, key, [](auto& each) { return each.first; });
      if (standIn == rules.byDefault.end()) {
        EXPECT_EQ(value, nullptr) << "an absent value is not written";
      } else {
        ASSERT_NE(value, nullptr) << "a default is written";
        EXPECT_EQ(json::write(*value), standIn->second);
      }
    }
  }
}

TEST_P(RecordKeys, ValuesOfAnotherKindFailWithTheirPath) {
  const auto& rules = GetParam();
  for (const auto key : rules.keys()) {
    // No field of any record holds a list of booleans.
    Json document = *json::parse(fullDocument());
    recordAt(document, rules.place).set(std::string(key), Json::Array{true});
    const std::string path = std::string(rules.place) + "." + std::string(key);
    EXPECT_TRUE(errorOf(json::write(document)).starts_with(path)) << path;
  }
}

INSTANTIATE_TEST_SUITE_P(Records, RecordKeys, testing::ValuesIn(allRules),
                         [](const auto& test) { return std::string(test.param.record); });

TEST(ConversationJson, KeysThatNobodyKnowsAreIgnored) {
  for (const auto& rules : allRules) {
    Json document = *json::parse(fullDocument());
    recordAt(document, rules.place).set("fromTheFuture", Json::Array{1, "x"});
    const auto decoded = decodeWorkspaces(json::write(document), conversationJson);
    ASSERT_TRUE(decoded) << decoded.error().text();
    EXPECT_EQ(encodeWorkspaces(*decoded, conversationJson), fullDocument());
  }
}

TEST(ConversationJson, UnknownValueOfAnEnumerationFailsTheDocumentWithItsPath) {
  const std::pair<std::string_view, std::string_view> places[] = {
      {"0.threads.0", "lastProvider"},
      {"0.threads.0", "workspaceMode"},
      {"0.threads.0.entries.0", "kind"},
      {"0.threads.0.draftAttachments.0", "kind"},
      {"0.threads.0.runs.0", "status"},
      {"0.threads.0.checkpoints.0", "kind"},
      {"0.threads.0.importedSession", "activity"}};
  for (const auto& [place, key] : places) {
    Json document = *json::parse(fullDocument());
    recordAt(document, place).set(std::string(key), "surprise");
    EXPECT_EQ(errorOf(json::write(document)),
              std::string(place) + "." + std::string(key) + ": unknown value \"surprise\"");
  }
}

TEST(ConversationJson, EveryCaseOfEveryEnumerationHasItsOwnStoredText) {
  const auto check = []<typename E>(E, std::vector<std::string_view> expected) {
    for (std::size_t i = 0; i < expected.size(); ++i) {
      EXPECT_EQ(rawText(static_cast<E>(i)), expected[i]);
      EXPECT_EQ(fromRawText<E>(expected[i]), static_cast<E>(i));
    }
    EXPECT_EQ(rawTexts(E{}).size(), expected.size());
    EXPECT_EQ(fromRawText<E>(""), std::nullopt);
  };
  check(ChatEntryKind{}, {"user", "assistant", "thought", "tool", "system"});
  check(ChatAttachmentKind{}, {"image", "file", "directory"});
  check(RunRecordStatus{}, {"starting", "running", "waitingApproval", "completed", "failed",
                            "cancelled", "interrupted"});
  check(TaskWorkspaceMode{}, {"shared", "isolated"});
  check(WorkspaceCheckpointKind{}, {"automatic", "manual", "recovery"});
  check(ExternalSessionActivity{}, {"active", "idle", "recent", "unknown"});
  check(AgentProvider{}, {"grok", "codex", "kimi", "glm", "claude", "local", "tasklet"});
}

TEST(ConversationJson, NumbersKeepTheirValueAndIntegersAreNotInvented) {
  const auto countOf = [](std::string_view number) {
    Json document = *json::parse(fullDocument());
    recordAt(document, "0.threads.0.draftAttachments.0")
        .set("byteCount", *json::parse(std::string(number)));
    const auto decoded = decodeWorkspaces(json::write(document), conversationJson);
    return decoded ? decoded->front().threads.front().draftAttachments.front().byteCount
                   : std::nullopt;
  };
  EXPECT_EQ(countOf("9223372036854775807"), 9223372036854775807);
  EXPECT_EQ(countOf("-3"), -3);
  EXPECT_EQ(countOf("4096.0"), 4096);
  EXPECT_EQ(countOf("1.5"), std::nullopt);
  EXPECT_EQ(countOf("1e300"), std::nullopt);

  const Workspace workspace = Workspace::makeProject("/p", Date(793400123.45678902));
  const auto decoded =
      decodeWorkspaces(encodeWorkspaces({workspace}, conversationJson), conversationJson);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->front(), workspace) << "a date comes back bit for bit";
}

TEST(ConversationJson, DatesFollowThePolicyOfTheStore) {
  ChatThread thread = ChatThread::make("T", Date(10));
  for (const auto& [form, date] :
       {std::pair{JsonPolicy::DateForm::secondsSinceReference, "10"},
        std::pair{JsonPolicy::DateForm::secondsSinceUnixEpoch, "978307210"},
        std::pair{JsonPolicy::DateForm::iso8601, R"("2001-01-01T00:00:10Z")"}}) {
    std::string out;
    JsonWriter writer(out);
    writeJson(writer, thread, JsonPolicy{form});
    EXPECT_EQ(json::write(*json::parseObject(out)->find("createdAt")), date);
    const auto decoded = decodeThread(*json::parse(out), JsonPolicy{form});
    ASSERT_TRUE(decoded) << decoded.error().text();
    EXPECT_EQ(*decoded, thread);
  }
}

TEST(ConversationJson, TextThatIsNoTreeSaysWhatIsWrong) {
  EXPECT_EQ(errorOf("{}"), "expected a list");
  EXPECT_EQ(errorOf("[1]"), "0: expected an object");
  EXPECT_NE(errorOf("[{"), "none");
  EXPECT_NE(errorOf(""), "none");
  EXPECT_EQ(errorOf("[]"), "none");
}

}  // namespace
}  // namespace vantrell
