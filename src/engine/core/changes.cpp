#include "engine/core/changes.h"

#include <algorithm>
#include <utility>

#include "platform/queues/dispatch.h"

namespace vantrell {

const ConversationChanges* ChangeBatch::of(const ThreadExecutionKey& key) const {
  const auto found = conversations.find(key);
  return found == conversations.end() ? nullptr : &found->second;
}

Changes::Changes(MainQueue& main) : main_(main) {}

Changes::Observation Changes::observe(Observer observer) {
  auto kept = std::make_shared<Observer>(std::move(observer));
  observers_.push_back(kept);
  return Observation(std::move(kept));
}

void Changes::schedule() {
  if (std::exchange(isScheduled_, true)) return;
  main_.post([this, life = std::weak_ptr(life_)] {
    if (!life.expired()) deliver();
  });
}

void Changes::deliver() {
  isScheduled_ = false;
  const ChangeBatch batch = std::exchange(pending_, {});
  const bool isEmpty = batch.topics.empty() && batch.conversations.empty() &&
                       batch.saveFailures.empty() && batch.notices.empty();
  if (isEmpty) return;
  std::erase_if(observers_, [](const auto& each) { return each.expired(); });
  // A copy: an observer may begin or end an observation.
  for (const auto& each : std::vector(observers_)) {
    if (const auto observer = each.lock()) (*observer)(batch);
  }
}

ConversationChanges& Changes::of(const ThreadExecutionKey& key) {
  schedule();
  return pending_.conversations[key];
}

void Changes::mark(const ChangeTopic& topic) {
  schedule();
  pending_.topics.insert(&topic);
}

void Changes::entryAppended(const ThreadExecutionKey& key, std::string_view entryID) {
  auto& changes = of(key);
  if (!changes.transcriptReset) changes.appendedEntries.emplace_back(entryID);
}

void Changes::entryChanged(const ThreadExecutionKey& key, std::string_view entryID) {
  auto& changes = of(key);
  if (changes.transcriptReset) return;
  // A stream changes the same entry again and again, nearly always the last one that was marked.
  const auto isListed = [entryID](const std::vector<std::string>& ids) {
    return std::find(ids.rbegin(), ids.rend(), entryID) != ids.rend();
  };
  if (!isListed(changes.changedEntries) && !isListed(changes.appendedEntries)) {
    changes.changedEntries.emplace_back(entryID);
  }
}

void Changes::transcriptReset(const ThreadExecutionKey& key) {
  auto& changes = of(key);
  changes.transcriptReset = true;
  changes.appendedEntries.clear();
  changes.changedEntries.clear();
}

void Changes::transcriptLoaded(const ThreadExecutionKey& key) {
  of(key).transcriptLoaded = true;
}

void Changes::runChanged(const ThreadExecutionKey& key) {
  of(key).runs = true;
}

void Changes::stateChanged(const ThreadExecutionKey& key) {
  of(key).state = true;
}

void Changes::threadChanged(const ThreadExecutionKey& key) {
  of(key).thread = true;
}

void Changes::composerWanted(const ThreadExecutionKey& key) {
  of(key).composerWanted = true;
}

void Changes::saveFailed(std::string reason) {
  schedule();
  pending_.saveFailures.push_back(std::move(reason));
}

void Changes::notice(std::string sentence) {
  schedule();
  pending_.notices.push_back(std::move(sentence));
}

}  // namespace vantrell
