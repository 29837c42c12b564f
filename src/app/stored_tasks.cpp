#include "app/stored_tasks.h"

#include "app/conversation_transfer.h"
#include "platform/queues/weakly.h"
#include "platform/storage/user_defaults.h"
#include "presentation/conversation_markdown.h"

namespace vantrell {

namespace {

Result<WorkspaceStore::Peek> peekedAt(const std::string& supportFolder) {
  const auto defaults = UserDefaults::inMemory();
  auto seen = WorkspaceStore(*defaults, supportFolder).peek();
  if (!seen) return refuse(seen.error() + ".");
  return *std::move(seen);
}

}  // namespace

StoredTasks::StoredTasks(MainQueue& main, WorkspaceTree& tree, Executor* background,
                         std::string supportFolder)
    : main_(main),
      tree_(tree),
      background_(background ? *background : static_cast<Executor&>(main)),
      supportFolder_(std::move(supportFolder)) {}

template <typename T>
void StoredTasks::inBackground(std::function<Result<T>(const std::string&)> work,
                               std::function<void(Result<T>)> done) {
  // The answer comes back only while this lives; the work itself needs nothing of it.
  auto answer = weakly(
      this, [done = std::move(done)](StoredTasks&, Result<T> result) { done(std::move(result)); });
  tree_.afterWriting([&background = background_, &main = main_, folder = supportFolder_,
                      work = std::move(work), answer = std::move(answer)]() mutable {
    background.post([&main, folder = std::move(folder), work = std::move(work),
                     answer = std::move(answer)]() mutable {
      auto result = std::make_shared<Result<T>>(work(folder));
      main.post([result, answer = std::move(answer)]() mutable { answer(*std::move(result)); });
    });
  });
}

void StoredTasks::search(views::SearchRequest request, std::size_t most,
                         std::function<void(Result<std::vector<Found>>)> done) {
  searching_.request_stop();
  searching_ = {};
  const auto stop = searching_.get_token();
  inBackground<std::vector<Found>>(
      [request = std::move(request), most,
       stop](const std::string& folder) -> Result<std::vector<Found>> {
        const auto seen = peekedAt(folder);
        if (!seen) return std::unexpected(seen.error());
        std::vector<Found> all;
        if (most == 0) return all;
        views::searchTasks(seen->workspaces, request, [&](const views::SearchHit& hit) {
          all.push_back({.key = {hit.workspace.id, hit.thread.id},
                         .entryID = hit.entry ? std::optional(hit.entry->id) : std::nullopt,
                         .project = hit.workspace.name,
                         .title = hit.thread.title,
                         .before = hit.before,
                         .hit = hit.hit,
                         .after = hit.after});
          return all.size() < most && !stop.stop_requested();
        });
        return all;
      },
      [stop, done = std::move(done)](Result<std::vector<Found>> found) {
        if (!stop.stop_requested()) done(std::move(found));
      });
}

void StoredTasks::exportConversation(const ThreadExecutionKey& key, std::string path, bool replaces,
                                     std::function<void(Result<>)> done) {
  inBackground<void>(
      [key, path = std::move(path), replaces](const std::string& folder) -> Result<> {
        const auto seen = peekedAt(folder);
        if (!seen) return std::unexpected(seen.error());
        for (const auto& workspace : seen->workspaces) {
          const ChatThread* thread =
              workspace.id == key.workspaceID ? workspace.thread(key.threadID) : nullptr;
          if (!thread) continue;
          return writeExport(
              path, ConversationMarkdown::render(thread->title, workspace.name, thread->entries),
              replaces);
        }
        return refuseMissingConversation();
      },
      std::move(done));
}

void StoredTasks::exportAll(std::string path, bool replaces, std::function<void(Result<>)> done) {
  inBackground<void>(
      [path = std::move(path), replaces](const std::string& folder) -> Result<> {
        const auto defaults = UserDefaults::inMemory();
        const auto exported = WorkspaceStore(*defaults, folder).exportDocument();
        if (!exported) return refuse(exported.error() + ".");
        return writeExport(path, exported->document, replaces);
      },
      std::move(done));
}

}  // namespace vantrell
