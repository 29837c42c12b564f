#include "remote/host/remote_command_handler.h"

#include <gmock/gmock.h>

#include "platform/crypto/crypto.h"
#include "support/engine_fixture.h"

namespace vantrell::tests {

namespace {

using Type = RemoteMessageType;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::string base64(const std::string& bytes) {
  return crypto::base64({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
}

class RemoteCommandHandlerTest : public EngineFixture, public RemoteOutput {
 protected:
  void SetUp() override {
    for (auto& each : providers.connectors) {
      each.second.modelOptions = [](const ProviderConnectorContext&) {
        return std::vector{ProviderModelOption::defaultOption({})};
      };
    }
    start();
    handler = std::make_shared<RemoteCommandHandler>(RemoteCommandHandler::Dependencies{
        .main = main,
        .pool = pool,
        .output = *this,
        .engine = {model->tree, model->selection, model->executions, *model->operations,
                   app->navigation(), *model->composer, model->queue, *model->branches,
                   model->approvals, model->controls, *model->router, *model->safety,
                   *model->usageReset, *model->context, *model->imagine},
        .sendSnapshot = [this] { ++snapshots; }});
  }
  using EngineFixture::send;
  using RemoteOutput::send;
  void send(RemoteEnvelope envelope, Work whenTaken) override {
    sent.push_back(std::move(envelope));
    if (whenTaken) main.post(std::move(whenTaken));
  }
  RemoteEnvelope command(Type type) {
    auto e = RemoteEnvelope::make(type);
    e.workspaceID = key.workspaceID.text();
    e.threadID = key.threadID.text();
    return e;
  }
  /// What was sent for it but the ack, which must come last.
  std::vector<std::string> texts(const RemoteEnvelope& e) {
    sent.clear();
    handler->handle(e);
    main.runReady();
    std::vector<std::string> all;
    for (const auto& each : sent) {
      if (each.type != "ack") all.push_back(each.text.value_or(each.type));
    }
    EXPECT_EQ(std::ranges::count(sent, e.id, &RemoteEnvelope::acknowledgesID), 1);
    return all;
  }
  RemoteEnvelope chunk(const std::string& id, std::int64_t index, std::int64_t count,
                       const std::string& bytes, const std::string& name = "notes.txt") {
    auto e = command(Type::attachmentChunk);
    e.mediaID = id;
    e.fileName = name;
    e.chunkIndex = index;
    e.chunkCount = count;
    e.data = base64(bytes);
    return e;
  }

  BackgroundPool pool{1};
  std::vector<RemoteEnvelope> sent;
  int snapshots = 0;
  std::shared_ptr<RemoteCommandHandler> handler;
};

TEST_F(RemoteCommandHandlerTest, carriesOutEachMessageOnce) {
  auto rename = command(Type::renameThread);
  rename.text = "First";
  EXPECT_THAT(texts(rename), IsEmpty());
  rename.text = "Second";
  EXPECT_THAT(texts(rename), IsEmpty());  // the ack alone
  EXPECT_EQ(thread().title, "First");

  handler->handle(command(Type::hello));
  handler->handle(command(Type::refresh));
  EXPECT_EQ(snapshots, 2);
  sent.clear();
  handler->handle(command(Type::ack));
  EXPECT_THAT(sent, IsEmpty());
  auto unknown = command(Type::hello);
  unknown.type = "of_a_later_version";
  EXPECT_THAT(texts(unknown), IsEmpty());

  // Of a thousand and one, the oldest two hundred are forgotten.
  for (int i = 0; i < 1000; ++i) handler->handle(command(Type::cancel));
  EXPECT_THAT(texts(rename), IsEmpty());
  EXPECT_EQ(thread().title, "Second");
}

TEST_F(RemoteCommandHandlerTest, dropsWhatLacksAField) {
  const auto before = model->tree.workspaces();
  for (std::size_t i = 0; i < rawTexts(Type{}).size(); ++i) {
    const auto type = static_cast<Type>(i);
    if (type == Type::hello || type == Type::refresh || type == Type::ack ||
        type == Type::newThread || type == Type::createCheckpoint ||
        type == Type::hostUpdateRequest || type == Type::usageReset) {
      continue;  // they need none
    }
    EXPECT_THAT(texts(RemoteEnvelope::make(type)), IsEmpty()) << rawText(type);
  }
  EXPECT_EQ(model->tree.workspaces(), before);
  EXPECT_THAT(texts(command(Type::hostUpdateRequest)),
              ElementsAre("The Mac updater is not ready yet."));
}

TEST_F(RemoteCommandHandlerTest, refusesWhatAPersonAtTheHostMustDo) {
  const auto with = [&](Type type, auto field, const char* value) {
    auto e = command(type);
    e.*field = value;
    return texts(e);
  };
  using E = RemoteEnvelope;
  EXPECT_THAT(with(Type::setPermissionMode, &E::permissionMode, "full_access"),
              ElementsAre("Full Access can only be enabled on the Mac after confirmation."));
  EXPECT_THAT(with(Type::setPermissionMode, &E::permissionMode, "unheard_of"), IsEmpty());
  EXPECT_THAT(with(Type::setPermissionMode, &E::permissionMode, "auto"), IsEmpty());
  EXPECT_EQ(model->settings.permissionMode(), GrokPermissionMode::auto_);
  EXPECT_THAT(with(Type::setWorkflowMode, &E::workflowMode, "unheard_of"),
              ElementsAre("Wait for the agent to finish before changing task mode."));

  work("Go");
  const auto wait = [](std::string what) {
    return ElementsAre("Wait for the agent to finish before " + what + ".");
  };
  EXPECT_THAT(with(Type::setPermissionMode, &E::permissionMode, "ask"),
              wait("changing permission mode"));
  EXPECT_THAT(with(Type::setProviderMode, &E::providerMode, "codex"), wait("changing providers"));
  EXPECT_THAT(with(Type::setSessionModel, &E::modelID, "x"), wait("changing models"));
  EXPECT_THAT(with(Type::setSessionEffort, &E::effort, "x"), wait("changing effort"));
  EXPECT_THAT(with(Type::setTaskWorkspaceMode, &E::workspaceMode, "isolated"),
              wait("changing workspace isolation"));
  EXPECT_THAT(texts(command(Type::createCheckpoint)), wait("creating a manual checkpoint"));
}

TEST_F(RemoteCommandHandlerTest, answersAQuestionForOnceOnly) {
  work("Go");
  client().onPermissionRequest(
      {7, "Run it?", "", {{"a", "Always", "allow_always"}, {"o", "Once", "allow_once"}}});
  const auto answer = [&](std::int64_t request, const char* option) {
    auto e = command(Type::permissionResponse);
    e.requestID = request;
    e.optionID = option;
    return texts(e);
  };
  for (const auto& [request, option] : {std::pair{7, "a"}, {6, "o"}, {7, "unknown"}}) {
    EXPECT_THAT(answer(request, option), IsEmpty());
    EXPECT_THAT(client().answers, IsEmpty());
  }
  EXPECT_THAT(answer(7, "o"), IsEmpty());
  ASSERT_EQ(client().answers.size(), 1u);
  EXPECT_EQ(client().answers[0].second, "o");
}

TEST_F(RemoteCommandHandlerTest, worksOnTasksAsTheHostDoes) {
  folder.file("project/a.png", "12345");
  auto prompt = command(Type::prompt);
  prompt.text = "Look\n\nAttached context:\n- @a.png";
  EXPECT_THAT(texts(prompt), IsEmpty());
  const auto& entry = thread().entries[0];
  EXPECT_EQ(entry.text, "Look");
  ASSERT_EQ(entry.attachments.size(), 1u);
  EXPECT_EQ(entry.attachments[0].kind, ChatAttachmentKind::image);
  EXPECT_EQ(entry.attachments[0].byteCount, 5);

  prompt.id = "second";
  prompt.text = "Later";
  texts(prompt);
  ASSERT_EQ(thread().queuedPrompts.size(), 1u);
  auto clear = command(Type::queueClear);
  clear.threadID = Uuid::random().text();  // not the selected one
  texts(clear);
  EXPECT_EQ(thread().queuedPrompts.size(), 1u);
  texts(command(Type::queueClear));
  EXPECT_THAT(thread().queuedPrompts, IsEmpty());

  auto branch = command(Type::branchAndSend);
  branch.entryID = entry.id;
  branch.text = "Again";
  branch.providerID = "codex";  // is not there
  EXPECT_THAT(texts(branch),
              ElementsAre("The requested retry provider is not available on this Mac."));
  auto pin = command(Type::setThreadPinned);
  pin.isPinned = true;
  texts(pin);
  pin.id = "again";
  texts(pin);
  EXPECT_TRUE(thread().isPinned);
  texts(command(Type::cancel));
  EXPECT_FALSE(model->executions.isBusy(key));

  auto move = command(Type::moveThread);
  move.destinationWorkspaceID = Uuid::random().text();
  EXPECT_EQ(texts(move).size(), 1u);
  EXPECT_EQ(snapshots, 1);
  EXPECT_THAT(texts(command(Type::deleteThread)), IsEmpty());
  EXPECT_EQ(model->tree.thread(key), nullptr);
}

TEST_F(RemoteCommandHandlerTest, putsUploadsTogether) {
  const std::string id = "0A1B2C3D-0000-4000-8000-000000000000";
  EXPECT_THAT(texts(chunk(id, 1, 2, "world", "../../evil/na:me.txt")), IsEmpty());
  sent.clear();
  handler->handle(chunk(id, 0, 2, "hello ", "../../evil/na:me.txt"));
  ASSERT_TRUE(main.runUntil([&] { return sent.size() == 2; }));
  const auto& ready = sent[0].type == "ack" ? sent[1] : sent[0];
  EXPECT_EQ(ready.type, "attachment_ready");
  EXPECT_EQ(ready.fileName, "na_me.txt");
  EXPECT_EQ(ready.text, ".vantrell/attachments/0A1B2C3D-na_me.txt");
  EXPECT_EQ(folder.contentOf(folder / "project/" + *ready.text), "hello world");

  // A project cannot lead what is uploaded out of its folder.
  const auto elsewhere = folder.folder("elsewhere");
  std::filesystem::remove_all(folder / "project/.vantrell/attachments");
  std::filesystem::create_symlink(elsewhere, folder / "project/.vantrell/attachments");
  sent.clear();
  handler->handle(chunk(id, 0, 1, "out", "name.txt"));
  ASSERT_TRUE(main.runUntil([&] { return sent.size() == 2; }));
  EXPECT_EQ((sent[0].type == "ack" ? sent[1] : sent[0]).type, "attachment_error");
  EXPECT_TRUE(std::filesystem::is_empty(elsewhere));

  const std::string metadata = "The attachment upload metadata is invalid.";
  const std::string big(262'145, 'x');
  EXPECT_THAT(texts(chunk(id, 0, 161, "a")), ElementsAre(metadata));
  EXPECT_THAT(texts(chunk(id, 2, 2, "a")), ElementsAre(metadata));
  EXPECT_THAT(texts(chunk("no id", 0, 2, "a")), ElementsAre(metadata));
  EXPECT_THAT(texts(chunk(id, 0, 2, big)),
              ElementsAre("An attachment chunk could not be decoded."));
  texts(chunk(id, 0, 2, "a"));
  EXPECT_THAT(texts(chunk(id, 1, 2, "a", "other")), ElementsAre(metadata));
  for (int i = 0; i < 80; ++i) {
    EXPECT_THAT(texts(chunk(id, i, 160, big.substr(1))), IsEmpty()) << i;
  }
  EXPECT_THAT(texts(chunk(id, 80, 160, "1")),
              ElementsAre("Remote attachments are limited to 20 MB each."));
}

TEST(RemoteAttachmentStore, givesFilesSafeNames) {
  const std::pair<std::string, std::string> cases[] = {
      {"a b-c_d.txt", "a b-c_d.txt"},
      {"   ", "attachment"},
      {"", "attachment"},
      {"%$!", "___"},
      {"Übung 日本.md", "Übung 日本.md"},
      {"x/..", ".."},
      {std::string(200, 'n'), std::string(120, 'n')}};
  for (const auto& [given, safe] : cases) EXPECT_EQ(RemoteAttachmentStore::safeName(given), safe);
}

TEST_F(RemoteCommandHandlerTest, tellsOfEvents) {
  handler->taskEvent(TaskEventKind::needsAttention, "Approve it.", {key.workspaceID, Uuid()});
  EXPECT_EQ(sent.back().title, "Task");
  EXPECT_EQ(sent.back().eventKind, "needs_attention");
  handler->imagineEvent(ImagineEventKind::completed, "Done.");
  EXPECT_EQ(sent.back().title, "Imagine creation");
  EXPECT_EQ(sent.back().eventKind, "imagine_completed");
}

}  // namespace

}  // namespace vantrell::tests
