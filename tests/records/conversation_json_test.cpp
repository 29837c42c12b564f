#include "records/stores/conversation_json.h"

#include <functional>
#include <gtest/gtest.h>
#include <set>

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

/// The least of each record that the program reads, as its first version may have stored it.
constexpr std::string_view leastDocument =
    R"([{"id":"00000000-0000-0000-0000-000000000001","name":"Work","path":"/work","threads":[)"
    R"({"id":"00000000-0000-0000-0000-000000000002","title":"T","importedSession":{)"
    R"("provider":"kimi","sessionID":"k1","sourceLabel":"Kimi","activity":"recent","importedAt":5,)"
    R"("lastSeenAt":6},"draftAttachments":[{"id":"00000000-0000-0000-0000-0000000000A1",)"
    R"("displayName":"a","path":"a","kind":"file"}],"checkpoints":[)"
    R"({"id":"00000000-0000-0000-0000-0000000000C1","label":"x","kind":"manual","createdAt":1,)"
    R"("archivePath":"/a","conversationEntryCount":3,"changedFileCount":2}],"entries":[)"
    R"({"id":"m","kind":"user","text":"t","createdAt":7}],"queuedPrompts":[)"
    R"({"id":"00000000-0000-0000-0000-0000000000B1","text":"q","createdAt":8}],"runs":[)"
    R"({"id":"00000000-0000-0000-0000-0000000000D1","prompt":"p","status":"failed","startedAt":1,)"
    R"("updatedAt":2}],"createdAt":9,"updatedAt":10},)"
    R"({"id":"00000000-0000-0000-0000-000000000003","title":"U","entries":[],"createdAt":9,)"
    R"("updatedAt":10}]}])";

/// Calls back for each key of each record in the document: the record, the key, and the path by
/// which messages name it.
void forEachKey(
    Json& at, const std::string& path,
    const std::function<void(JsonObject&, const std::string&, const std::string&)>& go) {
  const std::string front = path.empty() ? "" : path + ".";
  if (auto* list = at.asArray()) {
    for (std::size_t i = 0; i < list->size(); ++i)
      forEachKey((*list)[i], front + std::to_string(i), go);
  } else if (auto* record = at.asObject()) {
    std::vector<std::string> keys;
    for (const auto& [key, value] : *record) keys.push_back(key);
    for (const auto& key : keys) {
      const bool isMap = key.starts_with("provider");  // whose keys are no fields
      if (!isMap) forEachKey(*record->find(key), front + key, go);
      go(*record, key, front + key);
    }
  }
}

TEST(ConversationJson, LeastDocumentIsReadWithDefaultsAndEachOfItsKeysIsNeeded) {
  const auto decoded = decodeWorkspaces(leastDocument, conversationJson);
  ASSERT_TRUE(decoded) << decoded.error().text();
  EXPECT_TRUE(
      encodeWorkspaces(*decoded, conversationJson)
          .ends_with(R"("title":"U","draftAttachments":[],"workspaceMode":"shared",)"
                     R"("checkpoints":[],"entries":[],"queuedPrompts":[],"runs":[],)"
                     R"("createdAt":9,"updatedAt":10,"isPinned":false,"isArchived":false}],)"
                     R"("isPinned":false}])"))
      << "an absent value is not written, a default is";
  const std::set<std::string_view> optional{"importedSession", "draftAttachments", "checkpoints",
                                            "queuedPrompts", "runs"};
  Json document = *json::parse(leastDocument);
  forEachKey(document, "",
             [&](JsonObject& record, const std::string& key, const std::string& path) {
               const JsonObject whole = record;
               record.remove(key);
               EXPECT_EQ(errorOf(json::write(document)),
                         optional.contains(key) ? "none" : path + ": missing");
               record = whole;
             });
}

TEST(ConversationJson, NullIsAsGoodAsNothingAndOtherKindsFailWithTheirPath) {
  Json document = *json::parse(fullDocument());
  const auto read = [&] {
    const auto decoded = decodeWorkspaces(json::write(document), conversationJson);
    return decoded ? encodeWorkspaces(*decoded, conversationJson) : decoded.error().text();
  };
  forEachKey(document, "",
             [&](JsonObject& record, const std::string& key, const std::string& path) {
               const JsonObject whole = record;
               record.set(key, Json::Array{true});  // which no field of any record is
               EXPECT_TRUE(read().starts_with(path)) << path;
               record.set(key, nullptr);
               const std::string asNull = read();
               record.remove(key);
               EXPECT_EQ(read(), asNull) << path;
               record = whole;
               record.set("fromTheFuture", Json::Array{1, "x"});
               EXPECT_EQ(read(), fullDocument()) << path;
               record = whole;
             });
}

JsonObject& recordAt(Json& document, std::string_view place) {
  Json* at = &document;
  while (!place.empty()) {
    const std::string step(place.substr(0, place.find('.')));
    place.remove_prefix(std::min(place.size(), step.size() + 1));
    at = at->asArray() ? &(*at->asArray())[std::stoul(step)] : at->asObject()->find(step);
  }
  return *at->asObject();
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
