#include <random>
#include <set>

#include "support/engine_fixture.h"

namespace vantrell::tests {
namespace {

/// Does whatever a user could do, in any order, and looks after each step at what must always hold.
class AnyOperations : public EngineFixture {
 public:
  vantrell::WorkspaceOperations& operations() { return *model->operations; }
  vantrell::Navigation& navigation() { return model->navigation; }

  /// A number below `count`.
  std::size_t any(std::size_t count) {
    return std::uniform_int_distribution<std::size_t>(0, count - 1)(random);
  }
  Uuid anyWorkspace() {
    const auto& all = model->tree.workspaces();
    return all[any(all.size())].id;
  }
  ThreadExecutionKey anyThread() {
    const auto& all = model->tree.workspaces();
    const auto& owner = all[any(all.size())];
    // A workspace that is not looked at may have no visible conversation, but never none at all.
    return {owner.id, owner.threads[any(owner.threads.size())].id};
  }

  std::string doAny() {
    const auto at = anyThread();
    switch (any(17)) {
      case 0: navigation().selectThread(at.threadID, at.workspaceID); return "selectThread";
      case 1: navigation().selectWorkspace(at.workspaceID); return "selectWorkspace";
      case 2:
        navigation().openSearchResult(at.workspaceID, at.threadID, "entry");
        return "openSearchResult";
      case 3:
        navigation().selectAdjacentRecentTask(static_cast<int>(any(7)) - 3);
        return "selectAdjacentRecentTask";
      case 4:
        operations().addWorkspace(folder.folder("project " + std::to_string(any(4))));
        return "addWorkspace";
      case 5: operations().removeWorkspace(at.workspaceID); return "removeWorkspace";
      case 6: operations().setWorkspacePinned(at.workspaceID, any(2) == 0); return "pin";
      case 7: operations().archiveWorkspaceThreads(at.workspaceID); return "archiveThreads";
      case 8: operations().newThread(); return "newThread";
      case 9: operations().newThread(at.workspaceID); return "newThread in";
      case 10: operations().deleteThread(at.threadID, at.workspaceID); return "deleteThread";
      case 11:
        operations().moveThread(at.threadID, at.workspaceID, anyWorkspace());
        return "moveThread";
      case 12: operations().toggleThreadPin(at.threadID, at.workspaceID); return "toggleThreadPin";
      case 13: model->selection.setSection(static_cast<AppSection>(any(4))); return "section";
      case 14:
        app->selected().send("Go", {});
        main.runReady();
        return "send";
      case 15:
        if (clients.empty()) return "nothing to finish";
        if (client().prompts.empty()) client().opens("session");
        main.runReady();
        if (!client().prompts.empty()) client().finishes();
        main.runReady();
        return "finish";
      default:
        operations().setThreadArchived(at.threadID, at.workspaceID, any(3) != 0);
        return "setThreadArchived";
    }
  }

  void expectInvariants() {
    const auto& all = model->tree.workspaces();
    ASSERT_FALSE(all.empty());
    EXPECT_EQ(all[0].path, store.generalWorkspacePath()) << "General is there and first";
    std::set<Uuid> ids;
    std::set<std::string> paths;
    for (const auto& workspace : all) {
      EXPECT_TRUE(ids.insert(workspace.id).second);
      EXPECT_TRUE(paths.insert(workspace.path).second);
      EXPECT_FALSE(workspace.threads.empty());
      for (const auto& each : workspace.threads) EXPECT_TRUE(ids.insert(each.id).second);
    }
    const auto selected = model->selection.key();
    ASSERT_TRUE(selected);
    ASSERT_TRUE(model->tree.thread(*selected)) << "what is selected is there";
    EXPECT_TRUE(std::ranges::any_of(model->tree.workspace(selected->workspaceID)->threads,
                                    [](const auto& each) { return !each.isArchived; }))
        << "the selected workspace has something to show";
    EXPECT_EQ(saved(), all) << "what is changed is kept";
  }

  std::mt19937 random;
};

class OperationsInAnyOrder : public AnyOperations,
                             public ::testing::WithParamInterface<unsigned> {};

TEST_P(OperationsInAnyOrder, KeepTheTreeAndTheSelectionSound) {
  random.seed(GetParam());
  start();
  std::string story;
  for (int step = 0; step < 80; ++step) {
    main.advance(std::chrono::seconds(1));
    story += doAny() + ", ";
    expectInvariants();
    if (HasFailure()) FAIL() << story;
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, OperationsInAnyOrder, ::testing::Range(1U, 31U));

TEST_F(AnyOperations, OnWhatHasGoneChangeNothing) {
  start();
  work("Go");
  const Uuid gone = Uuid::random();
  const Uuid here = key.workspaceID;
  const auto general = navigation().generalWorkspace()->id;
  const std::vector<std::pair<std::string, std::function<void()>>> cases = {
      {"selectThread", [&] { navigation().selectThread(gone, here); }},
      {"selectThread elsewhere", [&] { navigation().selectThread(key.threadID, general); }},
      {"selectWorkspace", [&] { navigation().selectWorkspace(gone); }},
      {"openSearchResult", [&] { navigation().openSearchResult(here, gone, "e"); }},
      {"selectActivity", [&] { navigation().selectActivity({.workspaceID = gone}); }},
      {"removeWorkspace", [&] { operations().removeWorkspace(gone); }},
      {"removeWorkspace General", [&] { operations().removeWorkspace(general); }},
      {"setWorkspacePinned", [&] { operations().setWorkspacePinned(gone, true); }},
      {"setWorkspacePinned General", [&] { operations().setWorkspacePinned(general, true); }},
      {"archiveWorkspaceThreads", [&] { operations().archiveWorkspaceThreads(gone); }},
      {"newThread", [&] { operations().newThread(gone); }},
      {"renameThread", [&] { operations().renameThread(gone, here, "x"); }},
      {"deleteThread", [&] { operations().deleteThread(gone, here); }},
      {"deleteThread elsewhere", [&] { operations().deleteThread(key.threadID, general); }},
      {"moveThread", [&] { operations().moveThread(gone, here, general); }},
      {"toggleThreadPin", [&] { operations().toggleThreadPin(gone, here); }},
      {"setThreadArchived", [&] { operations().setThreadArchived(gone, here, true); }},
      {"saveComposerDraft", [&] { operations().saveComposerDraft("x", {}, gone, here); }},
  };
  const auto before = model->tree.workspaces();
  for (const auto& [name, operation] : cases) {
    operation();
    EXPECT_EQ(model->tree.workspaces(), before) << name;
    EXPECT_EQ(saved(), before) << name;
    EXPECT_EQ(model->selection.key(), key) << name;
    EXPECT_EQ(client().stops, 0) << name;
  }
}

}  // namespace
}  // namespace vantrell::tests
