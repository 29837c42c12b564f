#include "remote/host/remote_snapshots.h"

#include <algorithm>
#include <fmt/format.h>

#include "engine/core/execution_table.h"
#include "engine/core/selection.h"
#include "engine/core/workspace_tree.h"
#include "engine/projects/project_context_service.h"
#include "platform/queues/weakly.h"

namespace vantrell {

namespace {

// Of one step on the main queue.
constexpr std::size_t threadsAtOnce = 250;
constexpr std::size_t contextsAtOnce = 16;    // small files
constexpr std::size_t bytesAtOnce = 1 << 20;  // of entries
/// Stored transcripts that are being read at a time, so that a save does not wait behind all.
constexpr int readsAtOnce = 16;
/// After that many rounds of reading a snapshot goes out with what there is.
constexpr int mostFetches = 8;

std::size_t sizeOf(const ChatEntry& entry) {
  return entry.text.size() + entry.id.size() + (entry.title ? entry.title->size() : 0) + 100;
}

}  // namespace

struct RemoteSnapshots::Fetch {
  int cycle = 0;
  std::vector<RemoteSnapshotPieces::Wanted> wanted;
  std::size_t next = 0;
  int reads = 0;  // under way
};

RemoteSnapshots::RemoteSnapshots(Dependencies dependencies)
    : core_(std::move(dependencies)), encoder_(core_.pool, "com.local.vantrell.remote-snapshot") {}

void RemoteSnapshots::start() {
  stop();
  isStarted_ = true;
  pieces_ = std::make_shared<RemoteSnapshotPieces>(core_.mostBytes);
  projectsDirty_ = contextsDirty_ = true;
  observation_ = core_.changes.observe(
      weakly(this, [](RemoteSnapshots& self, const ChangeBatch& batch) { self.changed(batch); }));
  sendNow();
}

void RemoteSnapshots::stop() {
  isStarted_ = false;
  ++cycle_;
  isAtWork_ = isWantedAgain_ = false;
  observation_ = {};
  timer_.cancel();
  changingSince_.reset();
  dirty_.clear();
  collecting_.clear();
  known_.clear();
  contexts_.clear();
  pieces_.reset();
  update_ = {};
  wasCut_ = false;
}

void RemoteSnapshots::sendNow() {
  if (!isStarted_) return;
  timer_.cancel();
  changingSince_.reset();
  begin();
}

void RemoteSnapshots::changed(const ChangeBatch& batch) {
  for (const auto& [key, changes] : batch.conversations) {
    auto& dirty = dirty_[key];
    if (changes.transcriptReset) dirty = {true, {}};
    for (const auto* ids : {&changes.appendedEntries, &changes.changedEntries}) {
      for (const auto& id : *ids) {
        if (std::ranges::find(dirty.entries, id) == dirty.entries.end())
          dirty.entries.push_back(id);
      }
    }
  }
  projectsDirty_ |= batch.has(topics::workspaces) || batch.has(topics::projectContext) ||
                    batch.has(topics::remoteSnapshot);
  contextsDirty_ |= batch.has(topics::remoteSnapshot);
  if (batch.has(topics::remoteSnapshot)) return sendNow();

  const Duration now = core_.sources.main.uptime();
  if (!changingSince_) changingSince_ = now;
  const Duration left = *changingSince_ + longestWait - now;
  timer_ = core_.sources.main.after(std::clamp<Duration>(left, Duration::zero(), quietTime),
                                    weakly(this, [](RemoteSnapshots& self) {
                                      self.changingSince_.reset();
                                      self.begin();
                                    }));
}

// ---- what has changed, in steps
// ------------------------------------------------------------------

void RemoteSnapshots::begin() {
  if (isAtWork_) {
    isWantedAgain_ = true;
    return;
  }
  isAtWork_ = true;
  fetches_ = 0;
  update_ = {};
  if (projectsDirty_) findNewThreads();
  collecting_ = std::exchange(dirty_, {});
  sendsProjects_ = std::exchange(projectsDirty_, false);
  if (std::exchange(contextsDirty_, false)) contexts_.clear();
  collect(++cycle_);
}

void RemoteSnapshots::findNewThreads() {
  std::set<ThreadExecutionKey> present;
  for (const auto& workspace : core_.sources.tree.workspaces()) {
    for (const auto& thread : workspace.threads) {
      const ThreadExecutionKey key{workspace.id, thread.id};
      present.insert(present.end(), key);
      if (!known_.contains(key)) dirty_[key] = {true, {}};
    }
  }
  known_ = std::move(present);
}

void RemoteSnapshots::collect(int cycle) {
  if (cycle != cycle_) return;
  if (collectContexts() && collectThreads()) return encode();
  core_.sources.main.post(weakly(this, [cycle](RemoteSnapshots& self) { self.collect(cycle); }));
}

/// False when the rest is left for the next step.
bool RemoteSnapshots::collectContexts() {
  std::size_t read = 0;
  const auto selected = core_.sources.selection.workspaceID();
  for (const auto& workspace : core_.sources.tree.workspaces()) {
    if (workspace.id == selected) {
      contexts_[workspace.id] = core_.sources.context.projectContext();
    } else if (!contexts_.contains(workspace.id) && !core_.sources.isGeneral(workspace.id)) {
      if (read++ == contextsAtOnce) return false;
      contexts_[workspace.id] = core_.sources.context.profile(workspace.id);
    }
  }
  return true;
}

/// False when the rest is left for the next step.
bool RemoteSnapshots::collectThreads() {
  std::size_t bytes = 0;
  for (std::size_t threads = 0; threads < threadsAtOnce && bytes < bytesAtOnce; ++threads) {
    if (collecting_.empty()) return true;
    const auto next = collecting_.extract(collecting_.begin());
    if (!core_.sources.tree.thread(next.key())) continue;
    update_.threads.push_back(copyOf(next.key(), next.mapped()));
    for (const auto& [place, entry] : update_.threads.back().entries) bytes += sizeOf(entry);
  }
  return collecting_.empty();
}

RemoteSnapshotUpdate::Thread RemoteSnapshots::copyOf(const ThreadExecutionKey& key,
                                                     const Dirty& dirty) const {
  const ChatThread& thread = *core_.sources.tree.thread(key);
  RemoteSnapshotUpdate::Thread copy{
      key, remoteThreadHead(thread), thread.entries.size(), dirty.reset, {}};
  if (dirty.reset) return copy;  // entries are asked for as far as there is room
  for (const auto& id : dirty.entries) {
    if (const auto place = thread.entries.indexOf(id)) {
      copy.entries.emplace_back(*place, thread.entries[*place]);
    }
  }
  std::ranges::sort(copy.entries, {}, [](const auto& each) { return each.first; });
  return copy;
}

// ---- encoding -----------------------------------------------------------------------------------

void RemoteSnapshots::encode() {
  const auto& from = core_.sources;
  update_.state = remoteSnapshotState(from);
  if (const auto selected = from.selection.key()) update_.prominent.insert(*selected);
  for (const auto& key : from.executions.keys()) {
    if (from.executions.isBusy(key) || from.executions.hasOpenQuestion(key)) {
      update_.prominent.insert(key);
    }
  }
  if (sendsProjects_) {
    auto& projects = update_.projects.emplace();
    for (const auto& workspace : from.tree.workspaces()) {
      const auto context = contexts_.find(workspace.id);
      projects.push_back(
          {remoteWorkspaceHead(workspace, from.isGeneral(workspace.id),
                               context == contexts_.end() ? nullptr : &context->second),
           {}});
      for (const auto& thread : workspace.threads) {
        projects.back().threads.push_back({workspace.id, thread.id});
      }
    }
  }
  encoder_.post([pieces = pieces_, update = std::exchange(update_, {})]() mutable {
    pieces->apply(std::move(update));
  });
  auto none = std::make_shared<Fetch>();
  none->cycle = cycle_;
  encodeFetched(none);
}

void RemoteSnapshots::encodeFetched(const std::shared_ptr<Fetch>& done) {
  const bool mayFetch = fetches_++ < mostFetches;
  encoder_.post(
      [pieces = pieces_, mayFetch, cycle = done->cycle, &main = core_.sources.main,
       answer = weakly(this, [](RemoteSnapshots& self, int cycle, auto wanted, auto text) {
         if (cycle != self.cycle_) return;
         if (wanted.empty()) return self.finish(std::move(text));
         self.fetch(std::move(wanted));
       })]() mutable {
        auto wanted = mayFetch ? pieces->wanted() : std::vector<RemoteSnapshotPieces::Wanted>();
        auto text = wanted.empty() ? pieces->assemble() : RemoteSnapshotText();
        main.post([answer = std::move(answer), cycle, wanted = std::move(wanted),
                   text = std::move(text)]() mutable {
          answer(cycle, std::move(wanted), std::move(text));
        });
      });
}

// ---- older entries ------------------------------------------------------------------------------

void RemoteSnapshots::fetch(std::vector<RemoteSnapshotPieces::Wanted> wanted) {
  auto fetch = std::make_shared<Fetch>();
  fetch->cycle = cycle_;
  fetch->wanted = std::move(wanted);
  fetchSome(fetch);
}

void RemoteSnapshots::fetchSome(const std::shared_ptr<Fetch>& fetch) {
  if (fetch->cycle != cycle_) return;
  std::size_t copied = 0;
  while (fetch->next < fetch->wanted.size()) {
    auto& wanted = fetch->wanted[fetch->next];
    const auto* thread = core_.sources.tree.thread(wanted.key);
    const auto dirty = dirty_.find(wanted.key);
    if (!thread || wanted.end > thread->entries.size() ||
        (dirty != dirty_.end() && dirty->second.reset)) {
      ++fetch->next;  // the next snapshot begins it from the start
      continue;
    }
    const auto& entries = thread->entries;
    const std::size_t first = wanted.end - wanted.count;
    if (core_.reader && wanted.end <= entries.unread()) {
      if (fetch->reads == readsAtOnce) return;
      ++fetch->reads;
      ++fetch->next;
      core_.reader->post([source = entries.source(), first, wanted, fetch, pieces = pieces_,
                          encoder = encoder_, &main = core_.sources.main,
                          done = weakly(this, [fetch](RemoteSnapshots& self) {
                            --fetch->reads;
                            self.fetchSome(fetch);
                          })]() mutable {
        auto part = source->readInBackground(first, wanted.end);
        encoder.post([pieces, wanted, part = std::move(part)]() mutable {
          pieces->addOlder(wanted, std::move(part.entries));
        });
        main.post(std::move(done));
      });
      continue;
    }
    // In memory: in steps, from the newest on.
    const std::size_t lowest = core_.reader ? std::max(first, entries.unread()) : first;
    std::vector<ChatEntry> copies;
    std::size_t bytes = 0, place = wanted.end;
    while (place > lowest && bytes <= wanted.bytes && copied < bytesAtOnce) {
      copies.push_back(entries[--place]);
      bytes += sizeOf(copies.back());
      copied += sizeOf(copies.back());
    }
    std::ranges::reverse(copies);
    encoder_.post([pieces = pieces_, wanted, copies = std::move(copies)]() mutable {
      pieces->addOlder(wanted, std::move(copies));
    });
    if (place > lowest && bytes <= wanted.bytes) {
      wanted = {wanted.key, place, place - first, wanted.bytes - bytes};
    } else {
      ++fetch->next;
    }
    if (copied >= bytesAtOnce) {
      return core_.sources.main.post(
          weakly(this, [fetch](RemoteSnapshots& self) { self.fetchSome(fetch); }));
    }
  }
  if (fetch->reads == 0) encodeFetched(fetch);
}

void RemoteSnapshots::finish(RemoteSnapshotText text) {
  const bool isCut = text.cutConversations > 0;
  if (isCut && !wasCut_ && core_.log) {
    core_.log(
        fmt::format("The state is larger than one message to a paired device may be: {} "
                    "conversations are sent with their newest entries only, and {} long texts are "
                    "cut.",
                    text.cutConversations, text.cutTexts));
  }
  wasCut_ = isCut;
  isAtWork_ = false;
  core_.send(std::move(text));
  if (isStarted_ && std::exchange(isWantedAgain_, false)) begin();
}

}  // namespace vantrell
