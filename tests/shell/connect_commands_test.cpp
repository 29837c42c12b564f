// `vantrell connect` in the built program, against a scripted host on this machine.
#include <map>
#include <set>

#include "platform/crypto/crypto.h"
#include "platform/values/uuid.h"
#include "remote/scripted_remote.h"
#include "shell/program_fixture.h"

namespace vantrell::tests {
namespace {

using Type = RemoteMessageType;

const std::string key(32, 'k');
const std::string hostProject = Uuid::random().text(), task = Uuid::random().text();

class ConnectCommands : public TerminalProgram {
 protected:
  ConnectCommands() {
    host_.listen();
    snapshot_.hostName = "den";
    snapshot_.connectionStatus = "idle";
    snapshot_.activeProviderLabel = "Codex";
    snapshot_.selectedWorkspaceID = hostProject;
    snapshot_.selectedThreadID = task;
    snapshot_.workspaces = {{.id = hostProject, .name = "site", .path = "/site"}};
    snapshot_.workspaces[0].threads = {{.id = task, .title = "Mend the build"}};
    snapshot_.workspaces[0].threads[0].entries = {{.id = "e1", .kind = "user", .text = "mend it"}};
  }

  std::shared_ptr<Record> connect(std::vector<std::string> words, const std::string& input = "") {
    words.insert(words.begin(), "connect");
    auto options = vantrell(std::move(words));
    options.standardInput = ProcessOptions::Input::pipe;
    const auto record = start(std::move(options));
    if (!input.empty()) record->process->write(input);
    record->process->closeInput();
    EXPECT_TRUE(main_.runUntil([&] {
      listen();
      return !record->exits.empty();
    }));
    return record;
  }
  void pair() {
    const auto link = makePairingLink(
        {.host = "127.0.0.1", .port = host_.port(), .keyData = key, .relayURL = "", .name = "Den"});
    const auto done = connect({"-"}, link);
    EXPECT_TRUE(done->output.contains("Paired with Den, directly: 1 task in 1 project"))
        << done->output << done->error;
  }

  RemoteThread& thread() { return snapshot_.workspaces[0].threads[0]; }
  void tell() {
    auto message = RemoteEnvelope::make(Type::snapshot);
    snapshot_.generatedAt += 1;
    message.snapshot = snapshot_;
    host_.send(message);
  }
  void say(Type type, const RemoteEnvelope& about, const std::string& text) {
    auto message = RemoteEnvelope::make(type);
    message.mediaID = about.mediaID;
    message.text = text;
    message.acknowledgesID = about.id;
    host_.send(message);
  }
  void setRun(const std::string& status, const std::string& threadID = task) {
    snapshot_.activities = {{{.id = run_,
                              .workspaceID = hostProject,
                              .threadID = threadID,
                              .status = status,
                              .statusMessage = status}}};
  }
  void addPrompt(const RemoteEnvelope& command) {
    thread().entries.push_back({.id = command.id, .kind = "user", .text = *command.text});
  }
  int obeyed(Type type) const { return static_cast<int>(std::ranges::count(types_, type)); }

  /// Takes what has come: a message with an id that was there is only acknowledged.
  void listen() {
    while (handled_ < host_.received.size()) {
      const auto message = host_.received[handled_++];
      const auto type = message.knownType().value_or(Type::ack);
      if (type == Type::hello || type == Type::refresh) {
        tell();
        continue;
      }
      if (ids_.insert(message.id).second) {
        types_.push_back(type);
        if (obey_ && !obey_(message, type)) continue;  // not acknowledged
      }
      say(Type::ack, message, "");
    }
  }

  ScriptedHost host_{main_, key};
  RemoteSnapshot snapshot_;
  std::function<bool(const RemoteEnvelope&, Type)> obey_;
  std::set<std::string> ids_;
  std::vector<Type> types_;
  std::size_t handled_ = 0;
  const std::string run_ = Uuid::random().text();
};

TEST_F(ConnectCommands, PairsLooksAndForgets) {
  EXPECT_EQ(code(connect({"tasks"})), 2);
  pair();
  const auto tasks = connect({"tasks"});
  EXPECT_TRUE(tasks->output.contains("Mend the build")) << tasks->output << tasks->error;
  const auto shown = connect({"show", task.substr(0, 6)});
  EXPECT_TRUE(shown->output.contains("› mend it")) << shown->output << shown->error;
  EXPECT_EQ(code(connect({"rename", task.substr(0, 6), "Other"})), 0);
  EXPECT_EQ(obeyed(Type::renameThread), 1);
  EXPECT_EQ(code(connect({"forget"})), 0);
  EXPECT_EQ(code(connect({"tasks"})), 2);
  EXPECT_FALSE(files::exists(home / "data/vantrell/Remote/host-pairing.link"));
}

TEST_F(ConnectCommands, FollowsARunAndAnswersItsQuestion) {
  pair();
  obey_ = [this](const RemoteEnvelope& message, Type type) {
    if (type == Type::prompt) {
      addPrompt(message);
      setRun("waitingApproval");
      snapshot_.permission = {{.requestID = 7, .title = "May I?"}};
      snapshot_.permission->options = {{"yes", "Allow", "allow_once"}, {"no", "No", "reject_once"}};
    } else if (type == Type::permissionResponse) {
      EXPECT_EQ(message.optionID, "yes");
      snapshot_.permission = std::nullopt;
      setRun("running");
      thread().entries.push_back({.id = "e3", .kind = "assistant", .text = "one "});
      tell();
      thread().entries.back().text += "two";
      setRun("completed");
    }
    return true;
  };
  const auto done = connect({"run", "--task", task.substr(0, 5), "go on"}, "1\n");
  EXPECT_EQ(code(done), 0) << done->error;
  for (const auto* words : {"Codex on Den in /site", "› go on", "? May I?", "→ Allow", "one two",
                            "✓ completed", "vantrell connect run --task"}) {
    EXPECT_TRUE(done->output.contains(words)) << words << " in\n" << done->output;
  }
  EXPECT_EQ(obeyed(Type::prompt), 1);
  EXPECT_EQ(obeyed(Type::permissionResponse), 1);
}

TEST_F(ConnectCommands, SaysWhyTheHostRefuses) {
  pair();
  obey_ = [this](const RemoteEnvelope& message, Type type) {
    if (type == Type::prompt) say(Type::error, message, "No provider is set up.");
    return true;
  };
  const auto done = connect({"run", "--task", task, "go on"});
  EXPECT_EQ(code(done), 1);
  EXPECT_TRUE(done->error.contains("No provider is set up.")) << done->error;
}

/// The connection is lost before the host obeys, or after that and before it says so.
class LostConnection : public ConnectCommands, public testing::WithParamInterface<bool> {};
INSTANTIATE_TEST_SUITE_P(, LostConnection, testing::Bool());

TEST_P(LostConnection, APromptIsObeyedOnceAndToldOnce) {
  pair();
  bool isFirst = true;
  obey_ = [&](const RemoteEnvelope& message, Type type) {
    if (type != Type::prompt) return true;
    const bool isLost = std::exchange(isFirst, false);
    if (!isLost || GetParam()) {
      addPrompt(message);
      setRun("completed");
    }
    if (!isLost) return true;
    ids_.clear();  // the host begins again, and remembers no id
    host_.hangUp();
    return false;
  };
  const auto done = connect({"run", "--json", "--task", task, "go on"});
  EXPECT_EQ(code(done), 0) << done->error;
  EXPECT_TRUE(done->error.contains("is lost")) << done->error;
  EXPECT_TRUE(done->error.contains("connected again")) << done->error;
  const auto isPrompt = [](const auto& entry) { return entry.text == "go on"; };
  EXPECT_EQ(std::ranges::count_if(thread().entries, isPrompt), 1);
  const auto all = events(done);
  EXPECT_EQ(std::ranges::count(all, "entry", kindOf), 1) << done->output;
  EXPECT_EQ(std::ranges::count(all, "run", kindOf), 1) << done->output;
}

TEST_F(ConnectCommands, SendsFilesWithAPromptAndFetchesMedia) {
  pair();
  const std::string content(500'000, 'x'), item = Uuid::random().text();
  std::string uploaded, sent;
  obey_ = [&](const RemoteEnvelope& message, Type type) {
    if (type == Type::attachmentChunk) {
      uploaded += *crypto::fromBase64(*message.data);
      if (*message.chunkIndex == *message.chunkCount - 1) {
        say(Type::attachmentReady, message, ".vantrell/attachments/a.txt");
      }
    } else if (type == Type::prompt) {
      sent = *message.text;
      addPrompt(message);
      setRun("failed");
    } else if (type == Type::mediaRequest) {
      for (int i = 0; i < 2; ++i) {
        auto piece = RemoteEnvelope::make(Type::mediaChunk);
        piece.mediaID = item;
        piece.chunkIndex = i;
        piece.chunkCount = 2;
        piece.data = i == 0 ? "YWI=" : "Yw==";
        host_.send(piece);
      }
    }
    return true;
  };
  const auto file = home.file("a.txt", content);
  EXPECT_EQ(code(connect({"run", "--task", task, "--attach", file, "look"})), 1) << "it failed";
  EXPECT_TRUE(uploaded == content);
  EXPECT_EQ(sent, "look\n\nAttached context:\n- @.vantrell/attachments/a.txt");

  snapshot_.imagineItems = {{.id = item, .kind = "image", .fileName = "../fox.png"}};
  EXPECT_EQ(code(connect({"media", item.substr(0, 8)})), 0);
  EXPECT_EQ(TemporaryFolder::contentOf(project + "/fox.png"), "abc");
  EXPECT_EQ(code(connect({"media", item})), 2) << "the file is there already";
}

TEST_F(ConnectCommands, SendsAFileAgainThatALostConnectionHasCut) {
  pair();
  std::map<std::string, std::string> uploads;  // by their ids
  bool isFirst = true;
  obey_ = [&](const RemoteEnvelope& message, Type type) {
    if (type == Type::prompt) {
      addPrompt(message);
      setRun("completed");
    } else if (type == Type::attachmentChunk) {
      if (*message.chunkIndex == 1 && std::exchange(isFirst, false)) {
        host_.hangUp();
        return false;
      }
      auto& content = uploads[*message.mediaID];
      content += *crypto::fromBase64(*message.data);
      if (content.size() == 500'000) say(Type::attachmentReady, message, "a.txt");
    }
    return true;
  };
  const auto file = home.file("a.txt", std::string(500'000, 'x'));
  const auto done = connect({"run", "--task", task, "--attach", file, "look"});
  EXPECT_EQ(code(done), 0) << done->error;
  EXPECT_EQ(uploads.size(), 2u);
  EXPECT_EQ(obeyed(Type::prompt), 1);
  EXPECT_TRUE(thread().entries.back().text.ends_with("\n- @a.txt"));
}

TEST_F(ConnectCommands, BranchesAndWorksAQueueOff) {
  pair();
  const auto queued = Uuid::random().text(), made = Uuid::random().text();
  thread().queuedPrompts = {{.id = queued, .text = "later"}};
  obey_ = [&](const RemoteEnvelope& message, Type type) {
    if (type == Type::queueRunNext) {
      thread().queuedPrompts.clear();
      thread().entries.push_back({.id = queued, .kind = "user", .text = "later"});
      setRun("completed");
    } else if (type == Type::branchAndSend) {
      EXPECT_EQ(message.entryID, "e1");
      EXPECT_EQ(message.providerID, "claude");
      snapshot_.workspaces[0].threads.push_back(
          {.id = made, .title = "B", .entries = {{.id = "e1", .kind = "user", .text = "mend"}}});
      auto& entries = snapshot_.workspaces[0].threads.back().entries;
      entries.push_back({.id = "e2", .kind = "user", .text = *message.text});
      setRun("failed", made);
    }
    return true;
  };
  const auto listed = connect({"queue", task});
  EXPECT_TRUE(listed->output.contains("later")) << listed->output << listed->error;
  const auto ran = connect({"queue", "run", task});
  EXPECT_EQ(code(ran), 0) << ran->error;
  EXPECT_TRUE(ran->output.contains("› later")) << ran->output;
  EXPECT_EQ(code(connect({"queue", "run", task})), 2) << "it is empty";
  const auto branched = connect({"branch", task, "--from", "e1", "--provider", "claude", "no, so"});
  EXPECT_EQ(code(branched), 1) << "it failed there";
  EXPECT_TRUE(branched->output.contains("› no, so")) << branched->output << branched->error;
  EXPECT_TRUE(branched->output.contains("Going on after 1 earlier")) << branched->output;
  EXPECT_TRUE(branched->output.contains(made.substr(0, 8))) << branched->output;
}

}  // namespace
}  // namespace vantrell::tests
