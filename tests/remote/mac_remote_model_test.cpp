// What a client keeps of its host, and what it sends for each action, against a scripted host.
#include "remote/client/mac_remote_model.h"

#include <gmock/gmock.h>

#include "platform/crypto/crypto.h"
#include "platform/secrets/secret_queue.h"
#include "remote/client/remote_pairing_store.h"
#include "remote/scripted_remote.h"
#include "support/temporary_folder.h"

namespace vantrell {
namespace {

using namespace std::chrono_literals;
using Kind = MacRemoteConnectionState::Kind;
using Status = MacRemoteDraftAttachment::Status;
using Type = RemoteMessageType;
using ::testing::ElementsAre;

const std::string key(32, 'k');
constexpr auto offlineText = "Reconnect to the host Mac before sending commands.";

struct NoSecrets final : SecretStore {
  Status status() override { return {}; }
  Result<std::optional<std::string>> readSecret(const std::string&, const std::string&) override {
    return std::nullopt;
  }
  Result<> writeSecret(const std::string&, const std::string&, const std::string&) override {
    return std::unexpected(SecretError{SecretError::Kind::locked, "locked"});
  }
  Result<> removeSecret(const std::string&, const std::string&) override { return {}; }
};

RemoteWorkspace workspace(const std::string& id, const std::vector<std::string>& threads) {
  RemoteWorkspace made{.id = id, .name = id};
  double updatedAt = 100;
  for (const auto& thread : threads) {
    made.threads.push_back({.id = thread, .title = thread, .updatedAt = updatedAt--});
  }
  return made;
}

class MacRemoteModelTest : public ::testing::Test {
 protected:
  MacRemoteModelTest() { host_.listen(); }

  void makeModel(bool autoConnect = false) {
    model_ = MacRemoteModel::make({.main = main_,
                                   .pool = pool_,
                                   .store = store_,
                                   .supportFolder = folder_.path(),
                                   .relayURL = Url::parse(relay_.url())},
                                  {.onChange = nullptr,
                                   .prepareNotifications = [this] { ++prepared_; },
                                   .notify = [this](const auto& n) { notices_.push_back(n); },
                                   .onMessage = nullptr},
                                  autoConnect);
  }
  std::string link() const {
    return makePairingLink({"127.0.0.1", host_.port(), key, "", "Studio"});
  }
  void connectModel() {
    makeModel();
    model_->setPairingInput(" " + link() + "\n");
    model_->connect();
    ASSERT_TRUE(until([this] { return host_.received.size() == 1; }));
    EXPECT_EQ(host_.received[0].type, "hello");
  }
  void show(std::vector<RemoteWorkspace> workspaces, const std::string& selectedWorkspace = "",
            const std::string& selectedThread = "") {
    auto envelope = RemoteEnvelope::make(Type::snapshot);
    auto& snapshot = envelope.snapshot.emplace();
    snapshot.generatedAt = ++generation_;
    snapshot.workspaces = std::move(workspaces);
    if (!selectedWorkspace.empty()) snapshot.selectedWorkspaceID = selectedWorkspace;
    if (!selectedThread.empty()) snapshot.selectedThreadID = selectedThread;
    host_.send(envelope);
    ASSERT_TRUE(
        until([this] { return state().snapshot && state().snapshot->generatedAt == generation_; }));
  }
  bool until(const std::function<bool()>& condition) { return main_.runUntil(condition); }
  const MacRemoteModel::State& state() const { return model_->state(); }
  std::string selection() const {
    return state().selectedWorkspaceID.value_or("-") + " " + state().selectedThreadID.value_or("-");
  }
  /// What the action sends; a `refresh` marks the end.
  std::vector<RemoteEnvelope> sentBy(const std::function<void()>& action) {
    host_.received.clear();
    action();
    model_->send(RemoteEnvelope::make(Type::refresh));
    EXPECT_TRUE(until(
        [this] { return !host_.received.empty() && host_.received.back().type == "refresh"; }));
    auto sent = std::exchange(host_.received, {});
    if (!sent.empty()) sent.pop_back();
    return sent;
  }
  void answer(Type type, const std::string& mediaID, std::optional<std::string> text) {
    auto envelope = RemoteEnvelope::make(type);
    envelope.mediaID = mediaID;
    envelope.text = std::move(text);
    host_.send(envelope);
  }

  tests::TemporaryFolder folder_;
  ManualMainQueue main_;
  BackgroundPool pool_{2};
  SecretQueue secrets_{std::make_shared<NoSecrets>(), main_, pool_};
  MacRemotePairingStore store_{folder_.path(), secrets_};
  ScriptedHost host_{main_, key};
  ScriptedRelay relay_{main_, pool_, key};
  std::shared_ptr<MacRemoteModel> model_;
  std::vector<MacTaskNotification> notices_;
  int prepared_ = 0;
  double generation_ = 0;
};

TEST_F(MacRemoteModelTest, FollowsTheHostUntilTheUserHasChosen) {
  connectModel();
  EXPECT_EQ(state().pairingName, "Studio");
  show({workspace("A", {"1", "2"}), workspace("B", {"3"})}, "B", "3");
  EXPECT_EQ(selection(), "B 3");
  model_->selectThread("2", "A");
  show({workspace("A", {"1", "2"}), workspace("B", {"3"})}, "B", "3");
  EXPECT_EQ(selection(), "A 2");
  show({workspace("A", {"1"}), workspace("B", {"3"})}, "B", "3");
  EXPECT_EQ(selection(), "B 3");
  show({workspace("A", {"1"}), workspace("B", {"4", "5"})}, "B", "gone");
  EXPECT_EQ(selection(), "B 4");
  show({workspace("B", {})});
  EXPECT_EQ(selection(), "B -");
  show({workspace("C", {"6"})});
  EXPECT_EQ(selection(), "C 6");
  model_->disconnect(false);
  EXPECT_EQ(selection(), "- -");
  EXPECT_EQ(state().connectionState.kind, Kind::disconnected);
}

TEST_F(MacRemoteModelTest, RecentTasksWrapAtBothEnds) {
  connectModel();
  auto archived = workspace("B", {"old"});
  archived.threads[0].isArchived = true;
  show({workspace("A", {"1", "2", "3"}), archived}, "A", "1");
  for (const auto& [offset, expected] : std::vector<std::pair<int, std::string>>{
           {-1, "A 3"}, {1, "A 1"}, {1, "A 2"}, {0, "A 2"}, {3, "A 2"}}) {
    model_->selectAdjacentRecentTask(offset);
    EXPECT_EQ(selection(), expected);
  }
}

TEST_F(MacRemoteModelTest, RefusesWhatTheHostMustNotBeTold) {
  makeModel();
  model_->cancel();
  EXPECT_EQ(state().errorMessage, offlineText);
  connectModel();
  show({workspace("A", {"1"})}, "A", "1");
  const auto sent = sentBy([&] {
    model_->setPermissionMode(GrokPermissionMode::fullAccess);
    EXPECT_EQ(state().errorMessage, "Full Access must be confirmed on the host Mac.");
    model_->setTaskWorkspaceMode(TaskWorkspaceMode::shared);
    model_->sendPrompt(" \n");
    model_->renameThread("1", "A", " ");
    model_->branchAndSend("e", "", AgentProvider::codex);
    model_->handoff(AgentProvider::codex, ProviderHandoffScope::nextMessage);
    model_->setPermissionMode(GrokPermissionMode::auto_);
    model_->branchAndSend("e", " go ", AgentProvider::codex);
    model_->setThreadArchived(true, "1", "A");
  });
  ASSERT_EQ(sent.size(), 4u);
  EXPECT_EQ(sent[0].providerMode, "codex");
  EXPECT_EQ(sent[0].handoffScope, "next_message");
  EXPECT_EQ(sent[1].permissionMode, "auto");
  EXPECT_EQ(sent[2].text, "go");
  EXPECT_EQ(sent[2].providerID, "codex");
  EXPECT_EQ(sent[3].isArchived, true);
  EXPECT_EQ(selection(), "A -");
  host_.send(RemoteEnvelope::make(Type::error));
  EXPECT_TRUE(until(
      [&] { return state().errorMessage == "The host Mac could not complete that action."; }));
  host_.send(RemoteEnvelope::make(Type::taskEvent));
  EXPECT_TRUE(until([&] { return notices_.size() == 1; }));
  EXPECT_EQ(notices_[0].message, "The host task needs attention.");
}

TEST_F(MacRemoteModelTest, UploadsAttachmentsBeforeThePrompt) {
  connectModel();
  show({workspace("A", {"1"})}, "A", "1");
  const std::string content(MacRemoteModel::longestAttachment, 'x');
  const auto large = folder_.file("large.bin", content);
  const auto tooLarge = folder_.file("too large.bin", content + "x");
  const auto empty = folder_.file("empty.png", "");
  host_.received.clear();
  model_->uploadAttachments({large, large, empty, tooLarge, folder_ / "missing"});
  ASSERT_EQ(state().draftAttachments.size(), 4u);
  ASSERT_TRUE(until([&] { return host_.received.size() == 108; }));
  std::string received;
  for (const auto& chunk : host_.received) {
    if (chunk.mimeType == "image/png") {
      EXPECT_EQ(chunk.chunkCount, 1);
      EXPECT_EQ(chunk.data, "");
      continue;
    }
    EXPECT_EQ(chunk.fileName, "large.bin");
    EXPECT_EQ(chunk.chunkCount, 107);
    received += crypto::fromBase64(*chunk.data).value_or("");
  }
  EXPECT_TRUE(received == content);
  const auto drafts = [&](std::size_t i) { return state().draftAttachments[i]; };
  ASSERT_TRUE(until([&] { return drafts(3).status == Status::failed; }));
  EXPECT_EQ(drafts(2).text, "Attachments are limited to 20 MB each.");

  EXPECT_FALSE(model_->sendPrompt("look"));
  model_->removeAttachment(drafts(3).id);
  answer(Type::attachmentReady, drafts(0).id, "in/large.bin");
  answer(Type::attachmentError, drafts(1).id, std::nullopt);
  ASSERT_TRUE(until([&] { return drafts(1).text == "Upload failed."; }));
  answer(Type::attachmentReady, drafts(1).id, "in/empty.png");
  answer(Type::attachmentReady, drafts(2).id, "in/third");
  ASSERT_TRUE(until([&] { return drafts(2).status == Status::ready; }));
  const auto sent = sentBy([&] { EXPECT_TRUE(model_->sendPrompt(" look ")); });
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0].text,
            "look\n\nAttached context:\n- @in/large.bin\n- @in/empty.png\n- @in/third");
  EXPECT_TRUE(state().draftAttachments.empty());
  EXPECT_EQ(prepared_, 1);
}

TEST_F(MacRemoteModelTest, KeepsDraftsOfTasksThatExist) {
  connectModel();
  model_->saveComposerDraft("one", "1", "A");
  model_->saveComposerDraft(std::string(250'001, 'x'), "2", "A");
  EXPECT_EQ(model_->composerDraft("2", "A").size(), 250'000u);
  model_->setPairingInput("elsewhere");
  model_->saveComposerDraft("theirs", "1", "A");
  model_->setPairingInput(link());
  show({workspace("A", {"1"})});
  EXPECT_EQ(model_->composerDraft("1", "A"), "one");
  EXPECT_EQ(model_->composerDraft("2", "A"), "");
  model_->saveComposerDraft("", "1", "A");
  EXPECT_EQ(model_->composerDraft("1", "A"), "");
  model_->disconnect(true);
  EXPECT_EQ(state().pairingName, "Host Mac");
}

TEST_F(MacRemoteModelTest, TheNewestDraftsAreStored) {
  const auto file = folder_ / "Remote/composer-drafts.json";
  {
    BackgroundPool pool{1};
    MacRemoteComposerDraftStore drafts(folder_.path(), main_, pool);
    for (int i = 0; i < 201; ++i) {
      drafts.set(fmt::format("host|{}", i), "text");
      main_.advance(1s);
    }
  }
  EXPECT_EQ(folder_.modeOf(file), 0600u);
  const MacRemoteComposerDraftStore stored(folder_.path(), main_, pool_);
  EXPECT_EQ(stored.drafts().size(), 200u);
  EXPECT_EQ(stored.text("host|0"), "");
  EXPECT_EQ(stored.text("host|200"), "text");
  folder_.file("Remote/composer-drafts.json", "{");
  EXPECT_TRUE(MacRemoteComposerDraftStore(folder_.path(), main_, pool_).drafts().empty());
  EXPECT_EQ(folder_.modeOf(file), 0u);  // quarantined
}

TEST_F(MacRemoteModelTest, ConnectsByCodeByLinkAndByWhatIsStored) {
  makeModel();
  model_->setPairingInput("nonsense");
  model_->connect();
  EXPECT_EQ(state().connectionState.kind, Kind::failed);
  EXPECT_NE(state().errorMessage, std::nullopt);

  model_->setPairingInput("abcd-2345");
  model_->connect();
  EXPECT_EQ(state().connectionState.kind, Kind::connecting);
  ASSERT_TRUE(until([&] { return relay_.greetings.size() == 1; }));
  relay_.answers = {fmt::format(R"({{"type":"pairing_link","link":"{}"}})", link())};
  model_->connect();  // the first look-up says nothing any more
  ASSERT_TRUE(until([&] { return host_.received.size() == 1; }));
  EXPECT_EQ(state().pairingInput, link());
  EXPECT_EQ(state().errorMessage, std::nullopt);
  ASSERT_TRUE(until([&] { return folder_.modeOf(folder_ / "Remote/host-pairing.link") != 0; }));

  makeModel(true);
  ASSERT_TRUE(until([&] { return host_.received.size() == 2; }));
  EXPECT_EQ(state().pairingName, "Studio");
}

}  // namespace
}  // namespace vantrell
