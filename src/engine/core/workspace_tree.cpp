#include "engine/core/workspace_tree.h"

#include <semaphore>

#include "records/stores/workspace_store.h"

namespace vantrell {

namespace {
/// How many batches may wait for the writer; more changes gather until one is written. A disk that
/// is slower than the stream so gets fewer and larger ones.
constexpr std::size_t writesUnderWay = 2;

/// Entries that a loading transcript shows first.
constexpr std::size_t firstPart = 200;

/// Place of a run in its list.
std::size_t placeOf(const RunRecord& run, const ChatThread& thread) {
  return static_cast<std::size_t>(&run - thread.runs.data());
}
}  // namespace

/// A batch on its way to the disk.
struct WorkspaceTree::Write {
  SaveBatch batch;
  WorkspaceStore::Written result;
  std::binary_semaphore isDone{0};
};

WorkspaceTree::WorkspaceTree(MainQueue& main, WorkspaceStore& store, Changes& changes,
                             Executor* writer)
    : main_(main), store_(store), changes_(changes), writer_(writer) {
  store_.onNotice = [this](std::string_view sentence) { changes_.notice(std::string(sentence)); };
}

WorkspaceTree::~WorkspaceTree() {
  flush();
  store_.onNotice = nullptr;
}

void WorkspaceTree::load() {
  workspaces_ = store_.load(main_.now());
  unsaved_ = {};
  loading_.clear();
  streamTimer_.cancel();
  lastHandOver_ = main_.uptime();
  lastWriteFailed_ = !store_.lastError().empty();
}

// ---- saving -------------------------------------------------------------------------------------

TreeChanges::Thread& WorkspaceTree::touch(const ThreadExecutionKey& key, Urgency urgency) {
  saveSoon(urgency);
  return unsaved_.threads[key];
}

void WorkspaceTree::saveSoon(Urgency urgency) {
  if (saveIsPosted_ || saveWaitsForWriter_) return;
  if (urgency == Urgency::stream) {
    if (streamTimer_.isActive()) return;
    const Duration wait = lastHandOver_ + streamInterval - main_.uptime();
    if (wait > Duration::zero()) {
      streamTimer_ = main_.after(wait, [this] { save(); });
      return;
    }
  }
  saveIsPosted_ = true;
  main_.post([this, life = std::weak_ptr(life_)] {
    if (!life.expired() && saveIsPosted_) save();
  });
}

void WorkspaceTree::save() {
  if (writes_.size() < writesUnderWay) return handOver();
  saveIsPosted_ = false;
  saveWaitsForWriter_ = true;
}

void WorkspaceTree::handOver() {
  saveIsPosted_ = saveWaitsForWriter_ = false;
  streamTimer_.cancel();
  lastHandOver_ = main_.uptime();
  const auto write = std::make_shared<Write>();
  const auto changes = std::exchange(unsaved_, {});
  write->batch = std::exchange(savesAll_, false) ? store_.collectAll(workspaces_)
                                                 : store_.collect(workspaces_, changes);
  if (write->batch.empty() && !lastWriteFailed_) return;
  writes_.push_back(write);
  if (!writer_) {
    write->result = store_.write(std::move(write->batch));
    return finished(write);
  }
  writer_->post([this, write, life = std::weak_ptr(life_), &store = store_, &main = main_] {
    write->result = store.write(std::move(write->batch));
    main.post([this, write, life] {
      if (!life.expired()) finished(write);
    });
    // Last: the tree may go from here on, and with it all but the write.
    write->isDone.release();
  });
}

void WorkspaceTree::finished(const std::shared_ptr<Write>& write) {
  // flush() may have been faster.
  if (std::erase(writes_, write) == 0) return;
  lastWriteFailed_ = !write->result;
  if (!write->result) {
    changes_.saveFailed(write->result.error());
  } else if (const auto& notice = *write->result) {
    changes_.notice(*notice);
    savesAll_ = true;
    saveSoon(Urgency::turnEnd);
  }
  if (saveWaitsForWriter_) save();
}

bool WorkspaceTree::flush() {
  const auto await = [this] {
    while (!writes_.empty()) {
      const auto write = writes_.front();
      write->isDone.acquire();
      finished(write);
    }
  };
  // A short command may end before their transcripts are loaded.
  while (!pendingWork_.empty()) doPendingWork(pendingWork_.begin()->first);
  handOver();
  await();
  if (lastWriteFailed_ || savesAll_) {
    handOver();  // a last try
    await();
  }
  return !lastWriteFailed_;
}

bool interruptIfOpen(RunRecord& run, Date now) {
  if (!isActive(run.status)) return false;
  run.status = RunRecordStatus::interrupted;
  run.statusMessage = "vantrell restarted before this run reported completion.";
  run.updatedAt = now;
  run.completedAt = now;
  return true;
}

void WorkspaceTree::settleRunsLeftOpen() {
  const Date now = main_.now();
  for (auto& workspace : workspaces_) {
    for (auto& thread : workspace.threads) {
      const ThreadExecutionKey key{workspace.id, thread.id};
      bool wasOpen = false;
      for (std::size_t i = 0; i < thread.runs.size(); ++i) {
        RunRecord& run = thread.runs[i];
        if (!interruptIfOpen(run, now)) continue;
        touch(key).runs.places.insert(i);
        wasOpen = true;
      }
      if (!wasOpen) continue;
      // What a turn of this process adds meanwhile is not of the run that was left open.
      whenRead(key, [this, count = thread.entries.size()](const ThreadExecutionKey& present) {
        Transcript& entries = find(present)->entries;
        for (std::size_t i = std::min(count, entries.size()); i-- > 0;) {
          const ChatEntry& entry = std::as_const(entries)[i];
          const bool isOpenTool =
              entry.kind == ChatEntryKind::tool && entry.status && isOpenToolStatus(*entry.status);
          if (!isOpenTool) continue;
          entries[i].status = "failed";
          touch(present).entries.places.insert(i);
          changes_.entryChanged(present, entry.id);
        }
      });
    }
  }
}

// ---- loading transcripts ------------------------------------------------------------------------

void WorkspaceTree::loadTranscript(const ThreadExecutionKey& key, std::function<void()> then) {
  auto& waiting = loading_[key];
  const bool isUnderWay = !waiting.empty();
  waiting.push_back(then ? std::move(then) : [] {});
  if (isUnderWay) return;
  const ChatThread* found = thread(key);
  if (!found || found->entries.isRead() || !writer_) return finishLoading(key);

  const auto source = found->entries.source();
  const std::size_t end = found->entries.unread();
  const std::size_t tail = end - std::min(end, firstPart);
  // After all that was handed over, so that the rows are those of now.
  writer_->post([this, key, source, end, tail, life = std::weak_ptr(life_), &main = main_] {
    auto last = source->readInBackground(tail, end);
    main.post([this, key, life, source, last = std::move(last), end]() mutable {
      ChatThread* const present = life.expired() ? nullptr : find(key);
      if (!present || present->entries.source() != source || present->entries.unread() != end)
        return;
      source->reportLost(last.lost);
      present->entries.prepend(std::move(last.entries));
      loaded(key);
    });
    auto part = tail == 0 ? Transcript::Source::Part{} : source->readInBackground(0, tail);
    Transcript earlier(std::move(part.entries));
    earlier.makeIndex();
    main.post([this, key, life, source, earlier = std::move(earlier), lost = part.lost]() mutable {
      if (life.expired()) return;
      ChatThread* const present = find(key);
      if (present && present->entries.source() == source) {
        source->reportLost(lost);
        present->entries.complete(std::move(earlier));
        loaded(key);
      }
      finishLoading(key);
    });
  });
}

void WorkspaceTree::finishLoading(const ThreadExecutionKey& key) {
  auto node = loading_.extract(key);
  if (node.empty()) return;
  for (const auto& each : node.mapped()) each();
}

void WorkspaceTree::loaded(const ThreadExecutionKey& key) {
  changes_.transcriptLoaded(key);
}

void WorkspaceTree::whenRead(const ThreadExecutionKey& key, TranscriptWork work) {
  const ChatThread* found = thread(key);
  if (!found) return;
  if (found->entries.isRead() || !writer_) return work(key);
  pendingWork_[key].push_back(std::move(work));
  loadTranscript(key, [this, key] { doPendingWork(key); });
}

void WorkspaceTree::doPendingWork(const ThreadExecutionKey& key) {
  const auto pending = pendingWork_.extract(key);
  if (pending.empty() || !thread(key)) return;
  for (const auto& work : pending.mapped()) work(key);
}

void WorkspaceTree::afterWriting(std::function<void()> then) {
  handOver();
  if (!writer_) return main_.post(std::move(then));
  writer_->post([then = std::move(then), life = std::weak_ptr(life_), &main = main_]() mutable {
    main.post([then = std::move(then), life] {
      if (!life.expired()) then();
    });
  });
}

// ---- looking ------------------------------------------------------------------------------------

const Workspace* WorkspaceTree::workspace(const Uuid& id) const {
  const auto found = std::ranges::find(workspaces_, id, &Workspace::id);
  return found == workspaces_.end() ? nullptr : &*found;
}

const ChatThread* WorkspaceTree::thread(const ThreadExecutionKey& key) const {
  if (lastWorkspace_ < workspaces_.size()) {
    const auto& threads = workspaces_[lastWorkspace_].threads;
    if (workspaces_[lastWorkspace_].id == key.workspaceID && lastThread_ < threads.size() &&
        threads[lastThread_].id == key.threadID) {
      return &threads[lastThread_];
    }
  }
  const Workspace* owner = workspace(key.workspaceID);
  const ChatThread* found = owner ? owner->thread(key.threadID) : nullptr;
  if (found) {
    lastWorkspace_ = static_cast<std::size_t>(owner - workspaces_.data());
    lastThread_ = static_cast<std::size_t>(found - owner->threads.data());
  }
  return found;
}

ChatThread* WorkspaceTree::find(const ThreadExecutionKey& key) {
  return const_cast<ChatThread*>(thread(key));
}

std::optional<std::string> WorkspaceTree::executionPath(const ThreadExecutionKey& key) const {
  const ChatThread* found = thread(key);
  if (!found) return std::nullopt;
  return vantrell::executionPath(*workspace(key.workspaceID), *found);
}

std::optional<std::string> WorkspaceTree::executionPath(const std::optional<Uuid>& workspaceID,
                                                        const std::optional<Uuid>& threadID) const {
  if (workspaceID && threadID) return executionPath({*workspaceID, *threadID});
  const Workspace* found = workspaceID ? workspace(*workspaceID) : nullptr;
  return found ? std::optional(found->path) : std::nullopt;
}

void WorkspaceTree::addWorkspace(Workspace workspace) {
  workspaces_.push_back(std::move(workspace));
  structureChanged();
}

void WorkspaceTree::addThread(ChatThread thread, const Uuid& workspaceID) {
  const auto owner = std::ranges::find(workspaces_, workspaceID, &Workspace::id);
  if (owner == workspaces_.end()) return;
  owner->threads.insert(owner->threads.begin(), std::move(thread));
  structureChanged();
}

void WorkspaceTree::removeThread(const ThreadExecutionKey& key) {
  const ChatThread* found = thread(key);
  if (!found) return;
  doPendingWork(key);
  found = thread(key);  // the work may have added conversations
  auto& threads = std::ranges::find(workspaces_, key.workspaceID, &Workspace::id)->threads;
  threads.erase(threads.begin() + (found - threads.data()));
  structureChanged();
}

void WorkspaceTree::moveThread(const ThreadExecutionKey& key, const Uuid& workspaceID) {
  ChatThread* found = find(key);
  const auto to = std::ranges::find(workspaces_, workspaceID, &Workspace::id);
  if (!found || to == workspaces_.end()) return;
  const auto from = std::ranges::find(workspaces_, key.workspaceID, &Workspace::id);
  const std::string sourceFolder = from->path;
  const bool isRead = found->entries.isRead();
  const auto changedEntries =
      found->prepareForWorkspaceMove(from->path, from->name, to->name, main_.now());
  ChatThread moved = std::move(*found);
  from->threads.erase(from->threads.begin() + (found - from->threads.data()));
  const ThreadExecutionKey newKey{workspaceID, moved.id};
  to->threads.insert(to->threads.begin(), std::move(moved));
  structureChanged();
  if (auto marks = unsaved_.threads.extract(key)) {
    marks.key() = newKey;
    unsaved_.threads.insert(std::move(marks));
  }
  auto& marks = touch(newKey);
  marks.head = true;
  marks.entries.places.insert(changedEntries.begin(), changedEntries.end());
  if (auto work = pendingWork_.extract(key)) {
    for (auto& each : work.mapped()) whenRead(newKey, std::move(each));
  }
  if (isRead) return;
  whenRead(newKey, [this, sourceFolder](const ThreadExecutionKey& present) {
    const auto changed = find(present)->resolveAttachments(sourceFolder);
    touch(present).entries.places.insert(changed.begin(), changed.end());
  });
}

void WorkspaceTree::removeWorkspace(const Uuid& id) {
  for (std::size_t i = 0; const Workspace* owner = workspace(id); ++i) {
    if (i >= owner->threads.size()) break;
    doPendingWork({id, owner->threads[i].id});
  }
  std::erase_if(workspaces_, [&id](const Workspace& each) { return each.id == id; });
  structureChanged();
}

void WorkspaceTree::setWorkspacePinned(const Uuid& id, bool pinned) {
  const auto found = std::ranges::find(workspaces_, id, &Workspace::id);
  if (found == workspaces_.end()) return;
  found->isPinned = pinned;
  structureChanged();
}

void WorkspaceTree::updateThread(const ThreadExecutionKey& key,
                                 const std::function<void(ChatThread&)>& mutate) {
  ChatThread* found = find(key);
  if (!found) return;
  mutate(*found);
  touch(key).head = true;
  changes_.threadChanged(key);
}

void WorkspaceTree::noteImportedSessionSeen(const ThreadExecutionKey& key, Date now) {
  ChatThread* found = find(key);
  if (found && found->importedSession) found->importedSession->lastSeenAt = now;
}

void WorkspaceTree::updateThreadTitleIfNeeded(std::string_view prompt,
                                              const ThreadExecutionKey& key) {
  updateThread(key, [prompt](ChatThread& thread) { thread.nameAfterPrompt(prompt); });
}

void WorkspaceTree::appendEntry(ChatEntry entry, const ThreadExecutionKey& key) {
  ChatThread* found = find(key);
  if (!found) return;
  found->updatedAt = main_.now();
  const std::string id = entry.id;
  const Urgency urgency = entry.provider ? Urgency::stream : Urgency::turnEnd;
  found->entries.append(std::move(entry));
  touch(key, urgency);
  changes_.entryAppended(key, id);
}

void WorkspaceTree::appendSystemEntry(std::string text, const ThreadExecutionKey& key) {
  if (!thread(key)) return;
  ChatEntry entry;
  entry.id = Uuid::random().text();
  entry.kind = ChatEntryKind::system;
  entry.text = std::move(text);
  entry.createdAt = main_.now();
  appendEntry(std::move(entry), key);
}

bool WorkspaceTree::appendText(std::string_view chunk, std::string_view entryID,
                               const ThreadExecutionKey& key) {
  ChatThread* found = find(key);
  const auto place = found ? found->entries.indexOf(entryID) : std::nullopt;
  if (!place) return false;
  found->entries[*place].text.append(chunk);
  found->updatedAt = main_.now();
  touch(key, Urgency::stream).entries.places.insert(*place);
  changes_.entryChanged(key, entryID);
  return true;
}

bool WorkspaceTree::updateEntry(std::string_view entryID, const ThreadExecutionKey& key,
                                const std::function<void(ChatEntry&)>& mutate) {
  ChatThread* found = find(key);
  const auto place = found ? found->entries.indexOf(entryID) : std::nullopt;
  if (!place) return false;
  mutate(found->entries[*place]);
  found->updatedAt = main_.now();
  touch(key, Urgency::stream).entries.places.insert(*place);
  changes_.entryChanged(key, entryID);
  return true;
}

void WorkspaceTree::replaceTranscript(Transcript entries, const ThreadExecutionKey& key) {
  ChatThread* found = find(key);
  if (!found) return;
  const Transcript before = std::exchange(found->entries, std::move(entries));
  auto& marks = touch(key).entries;
  marks.cutTo(found->entries.size());
  for (std::size_t i = 0; i < std::min(before.size(), found->entries.size()); ++i) {
    if (!(before[i] == std::as_const(found->entries)[i])) marks.places.insert(i);
  }
  changes_.transcriptReset(key);
}

void WorkspaceTree::truncateTranscript(std::size_t count, const ThreadExecutionKey& key) {
  ChatThread* found = find(key);
  if (!found || count >= found->entries.size()) return;
  found->entries.truncate(count);
  touch(key).entries.cutTo(count);
  changes_.transcriptReset(key);
}

Uuid WorkspaceTree::beginRun(std::string prompt, const ThreadExecutionKey& key) {
  RunRecord run;
  run.id = Uuid::random();
  run.prompt = std::move(prompt);
  run.startedAt = main_.now();
  run.updatedAt = run.startedAt;
  const Uuid id = run.id;
  if (ChatThread* found = find(key)) {
    found->runs.push_back(std::move(run));
    touch(key);
    changes_.runChanged(key);
    handOver();  // however much is on its way already
  }
  return id;
}

const RunRecord* WorkspaceTree::run(const std::optional<Uuid>& runID,
                                    const ThreadExecutionKey& key) const {
  const ChatThread* found = runID ? thread(key) : nullptr;
  if (!found) return nullptr;
  // From the back: the run that is asked for is nearly always the last one.
  const auto run = std::find_if(found->runs.rbegin(), found->runs.rend(),
                                [&](const RunRecord& each) { return each.id == *runID; });
  return run == found->runs.rend() ? nullptr : &*run;
}

void WorkspaceTree::updateRun(const std::optional<Uuid>& runID, const ThreadExecutionKey& key,
                              const std::function<void(RunRecord&)>& mutate) {
  auto* const found = const_cast<RunRecord*>(run(runID, key));
  if (!found) return;
  mutate(*found);
  found->updatedAt = main_.now();
  touch(key).runs.places.insert(placeOf(*found, *thread(key)));
  changes_.runChanged(key);
}

void WorkspaceTree::noteActivity(const std::optional<Uuid>& runID, const ThreadExecutionKey& key) {
  auto* const found = const_cast<RunRecord*>(run(runID, key));
  if (!found) return;
  found->lastActivityAt = found->updatedAt = main_.now();
  touch(key, Urgency::stream).runs.places.insert(placeOf(*found, *thread(key)));
}

const RunRecord* WorkspaceTree::latestRun(const ThreadExecutionKey& key) const {
  const ChatThread* found = thread(key);
  return found ? found->latestRun() : nullptr;
}

void WorkspaceTree::structureChanged() {
  unsaved_.structure = true;
  saveSoon(Urgency::turnEnd);
  changes_.mark(topics::workspaces);
}

}  // namespace vantrell
