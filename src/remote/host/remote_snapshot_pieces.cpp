#include "remote/host/remote_snapshot_pieces.h"

#include <algorithm>

#include "remote/host/remote_snapshot_state.h"
#include "remote/protocol/remote_snapshot_json.h"

namespace vantrell {

namespace {

using Text = std::shared_ptr<const std::string>;

constexpr std::size_t floorBytes = 8 << 10;     // that every conversation has first, where they fit
constexpr std::size_t slackBytes = 16 << 10;    // kept beyond what is sent
constexpr std::size_t usualEntry = 600;         // bytes, of one that is not known yet
constexpr std::size_t fewestWanted = 8;         // entries that are read at once
constexpr std::size_t longestKept = 256 << 10;  // a text that is cut at all is not cut above this
constexpr std::size_t shortestCut = 512;
constexpr std::string_view cutMark = "\\n\\n[Cut here. The whole text is on the host.]";

template <typename Record>
std::string jsonOf(const Record& record) {
  std::string text;
  JsonWriter writer(text);
  writeJson(writer, record, remoteJson);
  return text;
}

/// The JSON up to the empty list of that name and after its opening bracket, and the rest. Inside
/// of a text the quotation marks would be escaped, so the first match is the list.
template <typename Record>
std::pair<Text, Text> around(std::string_view list, const Record& record) {
  std::string whole = jsonOf(record);
  const std::string mark = "\"" + std::string(list) + "\":[";
  const std::size_t begin = whole.find(mark) + mark.size();
  auto rest = std::make_shared<const std::string>(whole.substr(begin));
  whole.resize(begin);
  return {std::make_shared<const std::string>(std::move(whole)), std::move(rest)};
}

const Text& comma() {
  static const Text text = std::make_shared<const std::string>(",");
  return text;
}

/// Bytes of one character, or one escape, of a JSON text.
std::size_t stepAt(std::string_view text, std::size_t place) {
  const auto byte = static_cast<unsigned char>(text[place]);
  if (byte == '\\') return text[place + 1] == 'u' ? 6 : 2;
  return byte < 0x80 ? 1 : byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
}

}  // namespace

std::string RemoteSnapshotText::joined() const {
  std::string whole;
  whole.reserve(size);
  for (const auto& piece : pieces) whole += *piece;
  return whole;
}

RemoteSnapshotPieces::RemoteSnapshotPieces(std::size_t limit) : limit_(limit) {}

RemoteSnapshotPieces::Entry RemoteSnapshotPieces::encoded(ChatEntry entry) {
  auto record = remoteEntry(std::move(entry));
  // Encoded without its text first, to know where that stands.
  std::string text;
  JsonWriter(text).value(record.text);
  record.text.clear();
  std::string whole = jsonOf(record);
  constexpr std::string_view empty = "\"text\":\"\"";
  const std::size_t begin = whole.find(empty) + empty.size() - 1;
  whole.insert(begin, text, 1, text.size() - 2);
  return {std::make_shared<const std::string>(std::move(whole)), begin, begin + text.size() - 2};
}

RemoteSnapshotPieces::Entry RemoteSnapshotPieces::cut(const Entry& entry, std::size_t longest) {
  if (entry.textEnd - entry.textBegin <= longest) return entry;
  const std::string& whole = *entry.json;
  std::size_t end = entry.textBegin;
  while (end + stepAt(whole, end) <= entry.textBegin + longest) end += stepAt(whole, end);
  std::string shorter = whole.substr(0, end);
  shorter += cutMark;
  const std::size_t textEnd = shorter.size();
  shorter.append(whole, entry.textEnd);
  return {std::make_shared<const std::string>(std::move(shorter)), entry.textBegin, textEnd};
}

std::size_t RemoteSnapshotPieces::Thread::usual() const {
  return entries.empty() ? usualEntry : std::max<std::size_t>(bytes / entries.size(), 1);
}

std::size_t RemoteSnapshotPieces::Thread::estimate() const {
  return first == 0 || hasNoOlder ? bytes : bytes + std::max(older, first * usual());
}

void RemoteSnapshotPieces::Thread::dropFirst() {
  older = entries.front().json->size() + 1;
  bytes -= older;
  entries.pop_front();
  ++first;
}

// ---- what has changed ---------------------------------------------------------------------------

void RemoteSnapshotPieces::apply(RemoteSnapshotUpdate update) {
  std::tie(stateBegin_, stateEnd_) = around("workspaces", update.state);
  prominent_ = std::move(update.prominent);
  for (auto& changed : update.threads) {
    auto& thread = threads_[changed.key];
    std::tie(thread.begin, thread.end) = around("entries", changed.head);
    thread.updatedAt = changed.head.updatedAt;
    thread.hasNoOlder = false;
    const auto forget = [&](std::size_t count) {
      thread.entries.clear();
      thread.bytes = 0;
      thread.older = 0;
      thread.first = count;
    };
    if (changed.reset || thread.entries.empty()) {
      forget(changed.entries.empty() ? changed.count : changed.entries.front().first);
    }
    for (auto& [place, entry] : changed.entries) {
      if (place < thread.first) continue;  // it is read again if there is room for it
      const std::size_t index = place - thread.first;
      if (index > thread.entries.size()) {
        forget(changed.count);
        break;
      }
      auto made = encoded(std::move(entry));
      thread.bytes += made.json->size() + 1;
      if (index == thread.entries.size()) {
        thread.entries.push_back(std::move(made));
      } else {
        thread.bytes -= thread.entries[index].json->size() + 1;
        thread.entries[index] = std::move(made);
      }
    }
    if (thread.first + thread.entries.size() != changed.count) forget(changed.count);
  }
  if (!update.projects) return;
  projects_.clear();
  std::set<ThreadExecutionKey> present;
  for (auto& each : *update.projects) {
    auto [begin, end] = around("threads", each.head);
    present.insert(each.threads.begin(), each.threads.end());
    projects_.push_back({std::move(begin), std::move(end), std::move(each.threads)});
  }
  std::erase_if(threads_, [&](const auto& each) { return !present.contains(each.first); });
}

void RemoteSnapshotPieces::addOlder(const Wanted& wanted, std::vector<ChatEntry> entries) {
  const auto found = threads_.find(wanted.key);
  if (found == threads_.end()) return;
  auto& thread = found->second;
  if (thread.first != wanted.end || entries.size() > wanted.end) return;
  thread.hasNoOlder = entries.empty();
  const std::size_t most = thread.bytes + wanted.bytes;
  while (!entries.empty() && thread.bytes <= most) {
    thread.entries.push_front(encoded(std::move(entries.back())));
    entries.pop_back();
    thread.bytes += thread.entries.front().json->size() + 1;
    thread.older = 0;
    --thread.first;
  }
}

// ---- what there is room for ---------------------------------------------------------------------

std::size_t RemoteSnapshotPieces::fixedBytes() const {
  std::size_t bytes = stateBegin_->size() + stateEnd_->size();
  for (const auto& each : projects_) bytes += each.begin->size() + each.end->size() + 1;
  for (const auto& [key, thread] : threads_) bytes += thread.begin->size() + thread.end->size() + 1;
  return bytes;
}

RemoteSnapshotPieces::Plan RemoteSnapshotPieces::plan() const {
  Plan plan;
  const std::size_t fixed = fixedBytes();
  std::size_t room = limit_ - std::min(limit_, fixed);
  std::size_t wantedByProminent = 0;
  std::vector<std::pair<ThreadExecutionKey, const Thread*>> others;
  for (const auto& [key, thread] : threads_) {
    if (prominent_.contains(key)) {
      wantedByProminent += thread.estimate();
    } else {
      others.push_back({key, &thread});
    }
  }
  plan.forProminent = room;
  for (const auto& key : prominent_) {
    // Texts that are cut make room for more entries than fit as they are.
    const auto found = threads_.find(key);
    if (found != threads_.end()) plan.allowed[key] = std::min(found->second.estimate(), room);
  }
  room -= std::min(room, wantedByProminent);
  if (others.empty()) return plan;

  std::ranges::stable_sort(others, std::ranges::greater{},
                           [](const auto& each) { return each.second->updatedAt; });
  const std::size_t floor = std::min(floorBytes, room / others.size());
  std::size_t spare = room - floor * others.size();
  for (const auto& [key, thread] : others) {
    const std::size_t taken = std::min(thread->estimate(), floor + spare);
    spare = floor + spare - taken;
    plan.allowed[key] = taken;
  }
  return plan;
}

std::vector<RemoteSnapshotPieces::Wanted> RemoteSnapshotPieces::wanted() const {
  std::vector<Wanted> wanted;
  for (const auto& [key, allowed] : plan().allowed) {
    const auto& thread = threads_.at(key);
    if (thread.first == 0 || thread.hasNoOlder || thread.bytes >= allowed) continue;
    const std::size_t room = allowed - thread.bytes;
    // One that is nearly full stays as it is: its next entry would not fit.
    if (room < (thread.older ? thread.older : thread.entries.empty() ? 1 : thread.usual())) {
      continue;
    }
    const std::size_t count = std::max(room / thread.usual() + 1, fewestWanted);
    wanted.push_back({key, thread.first, std::min(count, thread.first), room});
  }
  return wanted;
}

RemoteSnapshotText RemoteSnapshotPieces::assemble() {
  const Plan plan = this->plan();
  RemoteSnapshotText text;

  // Of those that are selected or at work, long texts are cut until all fit.
  std::size_t longest = std::numeric_limits<std::size_t>::max();
  const auto measure = [&](std::size_t most) {
    std::size_t bytes = 0;
    for (const auto& key : prominent_) {
      const auto found = threads_.find(key);
      if (found == threads_.end()) continue;
      for (const auto& each : found->second.entries) {
        const std::size_t length = each.textEnd - each.textBegin;
        bytes += each.json->size() + 1 - length + std::min(length, most + cutMark.size());
      }
    }
    return bytes;
  };
  if (measure(longest - cutMark.size()) > plan.forProminent) {
    longest = longestKept;
    while (longest > shortestCut && measure(longest) > plan.forProminent) longest /= 2;
  }
  std::size_t roomForProminent = plan.forProminent;

  const auto add = [&](const Text& piece) {
    text.pieces.push_back(piece);
    text.size += piece->size();
  };
  const auto addEntries = [&](const ThreadExecutionKey& key, Thread& thread) {
    const bool isProminent = prominent_.contains(key);
    std::size_t room = isProminent ? roomForProminent : plan.allowed.at(key);
    const std::size_t roomBefore = room;
    std::vector<Text> newestFirst;
    for (auto each = thread.entries.rbegin(); each != thread.entries.rend(); ++each) {
      const Entry entry = isProminent ? cut(*each, longest) : *each;
      if (entry.json->size() + 1 > room) break;
      room -= entry.json->size() + 1;
      if (entry.json != each->json) ++text.cutTexts;
      newestFirst.push_back(entry.json);
    }
    if (isProminent) roomForProminent = room;
    if (newestFirst.size() < thread.first + thread.entries.size()) ++text.cutConversations;
    for (auto each = newestFirst.rbegin(); each != newestFirst.rend(); ++each) {
      if (each != newestFirst.rbegin()) add(comma());
      add(*each);
    }
    // What was far from being sent is read again when there is room.
    const std::size_t used = roomBefore - room;
    while (thread.entries.size() > newestFirst.size() && thread.bytes > 2 * used + slackBytes) {
      thread.dropFirst();
    }
  };

  add(stateBegin_);
  for (auto project = projects_.begin(); project != projects_.end(); ++project) {
    if (project != projects_.begin()) add(comma());
    add(project->begin);
    bool isFirst = true;
    for (const auto& key : project->threads) {
      const auto found = threads_.find(key);
      if (found == threads_.end()) continue;  // it follows with the next update
      if (!isFirst) add(comma());
      isFirst = false;
      add(found->second.begin);
      addEntries(key, found->second);
      add(found->second.end);
    }
    add(project->end);
  }
  add(stateEnd_);
  return text;
}

}  // namespace vantrell
