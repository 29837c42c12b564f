// Messages as JSON: the keys that other programs rely on, what may be missing, what may be more.
#include "remote/protocol/remote_envelope.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include "platform/values/json.h"
#include "platform/values/uuid.h"
#include "remote/protocol/remote_snapshot_json.h"

namespace vantrell {
namespace {

// Every key of a message.
constexpr std::string_view fullMessage = R"({
  "version": 1, "id": "7F1B7E0A-3C5D-4E7B-9C55-6C2A1F0B9D11", "type": "media_chunk",
  "workspaceID": "a", "threadID": "b", "destinationWorkspaceID": "c", "requestID": 7,
  "text": "d", "entryID": "e", "providerID": "f", "isPinned": true, "isArchived": false,
  "optionID": "g", "permissionMode": "h", "providerMode": "i", "modelID": "j", "effort": "k",
  "workflowMode": "l", "workspaceMode": "m", "handoffScope": "n", "mediaID": "o",
  "queuePromptID": "p", "mediaKind": "q", "mimeType": "r", "fileName": "s", "chunkIndex": 0,
  "chunkCount": 2, "data": "AAEC", "eventKind": "t", "title": "u", "acknowledgesID": "v"})";

// Every key of a snapshot.
constexpr std::string_view fullSnapshot = R"({
  "hostName": "studio", "generatedAt": 1795465800.25, "connectionStatus": "working",
  "connectionLabel": "Agent is working", "selectedWorkspaceID": "w", "selectedThreadID": "t",
  "workspaces": [{"id": "w", "name": "site", "path": "/site", "isGeneral": false, "isPinned": true,
    "threads": [{"id": "t", "title": "Fix it", "sessionID": "s", "createdAt": 1, "updatedAt": 2.5,
      "entries": [{"id": "e", "kind": "user", "text": "Fix it\n", "title": "x", "status": "done",
        "provider": "codex", "attachments": [{"id": "1", "displayName": "a.png", "path": "a.png",
          "kind": "image", "contentType": "image/png", "byteCount": 3000000000}],
        "createdAt": 1.5}],
      "queuedPrompts": [{"id": "q", "text": "next", "createdAt": 3}],
      "workspaceMode": "isolated", "checkpointCount": 2, "preferredProvider": "kimi",
      "isPinned": false, "isArchived": true}],
    "projectInstructions": "Be brief", "projectContextSummary": "2 files"}],
  "activities": [{"id": "r", "workspaceID": "w", "workspaceName": "site", "threadID": "t",
    "threadTitle": "Fix it", "provider": "codex", "status": "waitingApproval",
    "statusLabel": "Needs approval", "statusMessage": "m", "updatedAt": 4, "startedAt": 3,
    "lastActivityAt": 3.5}],
  "permission": {"requestID": 9, "title": "Run", "detail": "make",
    "options": [{"id": "o", "name": "Once", "kind": "allow_once"}]},
  "permissionMode": "ask", "permissionModeLabel": "Ask", "providerMode": "automatic",
  "providerModeLabel": "Auto", "workflowMode": "build", "workflowModeLabel": "Build",
  "activeProvider": "codex", "activeProviderLabel": "Codex", "sessionProvider": "codex",
  "sessionProviderLabel": "Codex", "sessionModelID": "default", "sessionModelLabel": "Default",
  "sessionModelOptions": [{"id": "m", "label": "M", "detail": "d", "isDefault": true}],
  "sessionEffort": "high", "sessionEffortLabel": "High",
  "sessionEffortOptions": [{"id": "high", "label": "High", "detail": "slow"}],
  "providers": [{"id": "codex", "label": "Codex", "shortLabel": "Codex",
    "category": "subscription", "executionLocation": "this_mac", "billingMode": "subscription",
    "available": true, "tools": true, "reasoningEffort": true, "usageReporting": true,
    "manualUsageReset": true, "backgroundExecution": false}],
  "routingOptions": [{"id": "automatic", "label": "Auto", "detail": "d", "available": true}],
  "noMeteredAPIs": true,
  "providerUsages": [{"provider": "codex", "label": "Codex", "primaryUsedPercent": 10.5,
    "secondaryUsedPercent": 3, "resetsAt": 5, "exhausted": false, "manualResetCredits": 1,
    "manualResetCreditID": "c"}],
  "imagineStatus": "idle", "imagineLabel": "Ready",
  "imagineItems": [{"id": "i", "kind": "video", "prompt": "p", "fileName": "f.mp4",
    "createdAt": 6}],
  "updateStatus": {"phase": "upToDate", "label": "l", "message": "m", "currentVersion": "1",
    "availableVersion": "2", "progress": 0.5, "requiresDecision": true, "activeWorkCount": 1,
    "queuedTaskCount": 2, "waitingUntilIdle": true},
  "fleetHosts": [{"id": "h", "name": "n", "platform": "linux", "status": "online",
    "capabilities": ["codex"]}],
  "automationCount": 1, "diagnosticIssueCount": 2, "projectContextSummary": "c",
  "routingReason": "r"})";

Json jsonOf(std::string_view text) {
  auto json = json::parse(text);
  EXPECT_TRUE(json) << text;
  return json ? *json : Json();
}

std::string messageWith(std::string_view snapshot) {
  return fmt::format(R"({{"version":1,"id":"1","type":"snapshot","snapshot":{}}})", snapshot);
}

TEST(RemoteEnvelopeTest, EveryKeyIsReadAndWritten) {
  for (const auto& text : {std::string(fullMessage), messageWith(fullSnapshot)}) {
    const auto envelope = decodeEnvelope(text);
    ASSERT_TRUE(envelope) << envelope.error().text();
    EXPECT_EQ(jsonOf(encode(*envelope)), jsonOf(text));
  }
  const auto envelope = *decodeEnvelope(fullMessage);
  EXPECT_EQ(envelope.requestID, 7);
  EXPECT_EQ(envelope.isArchived, false);
  EXPECT_EQ(envelope.chunkIndex, 0);
}

TEST(RemoteEnvelopeTest, AbsentFieldsAreLeftOut) {
  const auto envelope = RemoteEnvelope::make(RemoteMessageType::queueRunNext);
  EXPECT_EQ(encode(envelope),
            fmt::format(R"({{"version":1,"id":"{}","type":"queue_run_next"}})", envelope.id));
  EXPECT_EQ(Uuid::parse(envelope.id)->text(), envelope.id);
  EXPECT_NE(RemoteEnvelope::make(RemoteMessageType::hello).id, envelope.id);
  EXPECT_EQ(decodeEnvelope(encode(envelope)), envelope);
}

TEST(RemoteEnvelopeTest, ReadsWhatOtherVersionsSend) {
  const auto envelope = decodeEnvelope(
      R"({"extra":{"a":[1]},"type":"later","text":null,"id":"x","version":2,"isPinned":null})");
  ASSERT_TRUE(envelope);
  EXPECT_EQ(envelope->version, 2);
  EXPECT_EQ(envelope->type, "later");
  EXPECT_FALSE(envelope->knownType());
  EXPECT_FALSE(envelope->text || envelope->isPinned || envelope->snapshot);

  // A snapshot with its required keys alone, and one more.
  const auto oldest = decodeEnvelope(messageWith(
      R"({"hostName":"h","generatedAt":1,"connectionStatus":"idle","connectionLabel":"l",)"
      R"("workspaces":[],"permissionMode":"ask","permissionModeLabel":"Ask","providerMode":"grok",)"
      R"("providerModeLabel":"Grok","activeProviderLabel":"Grok","providerUsages":[],)"
      R"("imagineStatus":"idle","imagineLabel":"l","imagineItems":[],"later":1})"));
  ASSERT_TRUE(oldest) << oldest.error().text();
  EXPECT_FALSE(oldest->snapshot->providers);
}

TEST(RemoteEnvelopeTest, RefusesWhatIsNoMessage) {
  const std::pair<std::string, std::string> cases[] = {
      {R"({"id":"1","type":"hello"})", "version: missing"},
      {R"({"version":1,"type":"hello"})", "id: missing"},
      {R"({"version":1,"id":"1","type":null})", "type: missing"},
      {R"({"version":"1","id":"1","type":"hello"})", "version: expected an integer"},
      {R"({"version":1,"id":"1","type":"prompt","text":5})", "text: expected a text"},
      {R"({"version":1,"id":")" + std::string(257, 'i') + R"(","type":"hello"})", "id: too long"},
      {messageWith("{}"), "snapshot.hostName: missing"},
      {"[]", "expected an object"},
  };
  for (const auto& [text, problem] : cases) {
    const auto envelope = decodeEnvelope(text);
    ASSERT_FALSE(envelope) << text;
    EXPECT_EQ(envelope.error().text(), problem);
  }
  EXPECT_FALSE(decodeEnvelope("{\"version\":1,\"id\":\"1\",\"type\":\"\xff\"}"));
}

TEST(RemoteEnvelopeTest, TakesASnapshotThatIsEncodedAlready) {
  const auto envelope = *decodeEnvelope(messageWith(fullSnapshot));
  std::string snapshot;
  JsonWriter writer(snapshot);
  writeJson(writer, *envelope.snapshot, remoteJson);
  EXPECT_EQ(decodeEnvelope(encodeSnapshotEnvelope("1", snapshot)), envelope);
}

}  // namespace
}  // namespace vantrell
