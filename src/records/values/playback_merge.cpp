#include "records/values/playback_merge.h"

#include <algorithm>
#include <fmt/format.h>
#include <memory>
#include <span>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace vantrell {

namespace {

using Entries = std::span<const ChatEntry>;
using Pairs = std::vector<std::pair<std::size_t, std::size_t>>;

/// Larger tables than this one (16 MB) are not worth the best result: the first fit is taken.
constexpr std::size_t maxTableCells = 4'000'000;

/// A runtime may keep other line breaks than those that it streamed.
std::string withoutSpace(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (const char each : text) {
    if (each != ' ' && each != '\n' && each != '\t' && each != '\r') result += each;
  }
  return result;
}

/// Pairs (i, j), rising in both, with the largest sum of scores. A score of 0 never pairs, `best`
/// is the highest one.
template <typename Score>
Pairs align(std::size_t rows, std::size_t columns, unsigned best, Score score) {
  Pairs pairs;
  std::size_t front = 0;
  while (front < std::min(rows, columns) && score(front, front) == best) {
    pairs.emplace_back(front, front);
    ++front;
  }
  std::size_t back = 0;
  while (back < std::min(rows, columns) - front &&
         score(rows - back - 1, columns - back - 1) == best) {
    ++back;
  }
  const std::size_t height = rows - front - back;
  const std::size_t width = columns - front - back;
  if (height != 0 && width <= maxTableCells / height) {
    // sums[i][j]: the best of what begins at row i and column j.
    std::vector<unsigned> sums((height + 1) * (width + 1));
    const auto sum = [&](std::size_t i, std::size_t j) -> unsigned& {
      return sums[i * (width + 1) + j];
    };
    for (std::size_t i = height; i-- > 0;) {
      for (std::size_t j = width; j-- > 0;) {
        const unsigned here = score(front + i, front + j);
        sum(i, j) = std::max({sum(i + 1, j), sum(i, j + 1), here ? here + sum(i + 1, j + 1) : 0});
      }
    }
    for (std::size_t i = 0, j = 0; i < height && j < width;) {
      if (sum(i, j) == sum(i + 1, j)) {
        ++i;
      } else if (sum(i, j) == sum(i, j + 1)) {
        ++j;
      } else {
        pairs.emplace_back(front + i++, front + j++);
      }
    }
  } else {
    std::size_t next = front;
    for (std::size_t j = front; j < front + width; ++j) {
      std::size_t i = next;
      while (i < front + height && score(i, j) == 0) ++i;
      if (i == front + height) continue;
      pairs.emplace_back(i, j);
      next = i + 1;
    }
  }
  for (; back > 0; --back) pairs.emplace_back(rows - back, columns - back);
  return pairs;
}

bool isSaid(const ChatEntry& entry) {
  return entry.kind == ChatEntryKind::assistant || entry.kind == ChatEntryKind::thought;
}

/// A question about the status and its answer are Vantrell's own, in the middle of a turn.
bool isStatusQuestion(Entries entries, std::size_t place) {
  return entries[place].kind == ChatEntryKind::user && place + 1 < entries.size() &&
         entries[place + 1].kind == ChatEntryKind::assistant && !entries[place + 1].provider;
}

/// A prompt and what follows it; the first one of a transcript may be without a prompt.
struct Turn {
  std::size_t begin = 0, end = 0;
  bool hasPrompt = false;
  std::string answer;  // without white space
};

struct Side {
  explicit Side(Entries all) : entries(all) {
    for (std::size_t i = 0; i < entries.size(); ++i) {
      const ChatEntry& each = entries[i];
      texts.push_back(withoutSpace(each.text));
      const bool isPrompt = each.kind == ChatEntryKind::user && !isStatusQuestion(entries, i);
      if (isPrompt || turns.empty()) turns.push_back({.begin = i, .hasPrompt = isPrompt});
      turns.back().end = i + 1;
      if (each.kind == ChatEntryKind::assistant && each.provider) {
        turns.back().answer += texts.back();
      }
    }
  }

  Entries entries;
  std::vector<std::string> texts;  // of the entries, without white space
  std::vector<Turn> turns;
};

bool startsWithOther(std::string_view a, std::string_view b) {
  return a.starts_with(b) || b.starts_with(a);
}

class Merge {
 public:
  /// `present` is the turn at hand.
  Merge(Entries stored, Entries present, Entries played) : stored_(stored), played_(played) {
    for (const ChatEntry& each : stored) takenIDs_.insert(each.id);
    for (const ChatEntry& each : present) takenIDs_.insert(each.id);
    for (std::size_t turn = 0; turn < stored_.turns.size(); ++turn) {
      for (std::size_t i = stored_.turns[turn].begin; i < stored_.turns[turn].end; ++i) {
        if (stored[i].kind == ChatEntryKind::tool) turnOfTool_.emplace(stored[i].id, turn);
      }
    }
    for (const ChatEntry& each : played) {
      if (isStoredTool(each)) playedTools_.emplace(each.id, &each);
    }
  }

  std::vector<ChatEntry> result() {
    const auto score = [this](std::size_t i, std::size_t j) { return turnScore(i, j); };
    const Pairs pairs = align(stored_.turns.size(), played_.turns.size(), sameTurn, score);
    std::size_t i = 0, j = 0;  // turns
    const auto upTo = [&](std::size_t row, std::size_t column) {
      const Turn ours{.begin = beginOf(stored_, i), .end = beginOf(stored_, row)};
      // What a runtime says before the first prompt, a summary say, may have been added here.
      const bool isLead = j < column && !played_.turns[j].hasPrompt;
      mergeTurns(ours, isLead ? played_.turns[j] : Turn{});
      addPlayed({.begin = beginOf(played_, isLead ? j + 1 : j), .end = beginOf(played_, column)});
      i = row;
      j = column;
    };
    for (const auto& [row, column] : pairs) {
      upTo(row, column);
      mergeTurns(stored_.turns[i++], played_.turns[j++]);
    }
    upTo(stored_.turns.size(), played_.turns.size());
    return std::move(result_);
  }

 private:
  static constexpr unsigned sameTurn = 3;
  static constexpr unsigned sameEntry = 3;

  /// The same prompt may have been given often: its answer and its tools tell which one it is.
  unsigned turnScore(std::size_t i, std::size_t j) const {
    const Turn& ours = stored_.turns[i];
    const Turn& theirs = played_.turns[j];
    const bool isSamePrompt =
        ours.hasPrompt == theirs.hasPrompt &&
        (!ours.hasPrompt || stored_.texts[ours.begin] == played_.texts[theirs.begin]);
    bool sharesTool = false;
    for (std::size_t k = theirs.begin; k < theirs.end && !sharesTool; ++k) {
      const ChatEntry& each = played_.entries[k];
      if (!isStoredTool(each)) continue;
      if (turnOfTool_.at(each.id) != i) return 0;
      sharesTool = true;
    }
    if (!isSamePrompt) return sharesTool ? 2 : 0;
    if (sharesTool || ours.answer == theirs.answer) return sameTurn;
    return startsWithOther(ours.answer, theirs.answer) ? 2 : 1;
  }

  static std::size_t beginOf(const Side& side, std::size_t turn) {
    return turn < side.turns.size() ? side.turns[turn].begin : side.entries.size();
  }

  unsigned entryScore(std::size_t i, std::size_t j) const {
    const ChatEntry& a = stored_.entries[i];
    const ChatEntry& b = played_.entries[j];
    if (a.kind != b.kind) return 0;
    const bool isSameText = stored_.texts[i] == played_.texts[j];
    switch (a.kind) {
      case ChatEntryKind::user:
        return isSameText && !isStatusQuestion(stored_.entries, i) ? sameEntry : 0;
      case ChatEntryKind::tool:
        if (a.id == b.id) return sameEntry;
        if (!isSameText || a.text.empty()) return 0;
        // Kimi Code plays a call back with another id ("1:call_x" for "0:call_x") and title.
        return a.title == b.title ? 2 : 1;
      case ChatEntryKind::system: return isSameText ? sameEntry : 0;
      default: break;
    }
    if (a.provider != b.provider) return 0;
    if (isSameText) return sameEntry;
    // An answer that was cut off, here or there.
    return startsWithOther(stored_.texts[i], played_.texts[j]) ? 2 : 0;
  }

  void mergeTurns(const Turn& ours, const Turn& theirs) {
    const bool holdsAnswer = holdsAll(ours, theirs, ChatEntryKind::assistant);
    const bool holdsThought = holdsAll(ours, theirs, ChatEntryKind::thought);
    std::vector<std::size_t> news;  // entries that may bring something new
    for (std::size_t j = theirs.begin; j < theirs.end; ++j) {
      const ChatEntryKind kind = played_.entries[j].kind;
      const bool isHeld = kind == ChatEntryKind::assistant
                              ? holdsAnswer
                              : kind == ChatEntryKind::thought && holdsThought;
      if (!isHeld) news.push_back(j);
    }
    const auto score = [&](std::size_t i, std::size_t column) {
      return entryScore(ours.begin + i, news[column]);
    };
    const std::size_t rows = ours.end - ours.begin;
    std::size_t i = 0, j = 0;
    const auto upTo = [&](std::size_t row, std::size_t column) {
      while (i < row) addStored(stored_.entries[ours.begin + i++]);
      while (j < column) addPlayed(played_.entries[news[j++]]);
    };
    for (const auto& [row, column] : align(rows, news.size(), sameEntry, score)) {
      upTo(row, column);
      addBoth(ours.begin + i++, news[j++]);
    }
    upTo(rows, news.size());
  }

  /// Whether the stored turn says all that the runtime says of this kind in the same turn, though
  /// it may be divided into entries in another way: by message ids, or at each tool.
  bool holdsAll(const Turn& ours, const Turn& theirs, ChatEntryKind kind) const {
    if (theirs.begin == theirs.end) return false;
    const auto& provider = played_.entries[theirs.end - 1].provider;
    const auto joined = [&](const Side& side, const Turn& turn) {
      std::string text;
      for (std::size_t i = turn.begin; i < turn.end; ++i) {
        const ChatEntry& each = side.entries[i];
        if (each.kind == kind && each.provider == provider) text += side.texts[i];
      }
      return text;
    };
    return joined(stored_, ours).starts_with(joined(played_, theirs));
  }

  bool isStoredTool(const ChatEntry& entry) const {
    return entry.kind == ChatEntryKind::tool && turnOfTool_.contains(entry.id);
  }

  void addStored(const ChatEntry& entry) {
    result_.push_back(entry);
    const auto played = playedTools_.find(entry.id);
    if (entry.kind == ChatEntryKind::tool && played != playedTools_.end()) {
      updateTool(result_.back(), *played->second);
    }
  }

  void addPlayed(const ChatEntry& entry) {
    if (isStoredTool(entry)) return;
    result_.push_back(entry);
    std::string& id = result_.back().id;
    for (int i = 2; !takenIDs_.insert(id).second; ++i) id = fmt::format("{}-{}", entry.id, i);
  }

  void addPlayed(const Turn& turn) {
    for (std::size_t j = turn.begin; j < turn.end; ++j) addPlayed(played_.entries[j]);
  }

  void addBoth(std::size_t i, std::size_t j) {
    const ChatEntry& stored = stored_.entries[i];
    const ChatEntry& played = played_.entries[j];
    addStored(stored);
    if (stored.kind == ChatEntryKind::tool) return updateTool(result_.back(), played);
    const bool isLonger = played_.texts[j].size() > stored_.texts[i].size();
    if (isSaid(stored) && isLonger) result_.back().text = played.text;
  }

  static void updateTool(ChatEntry& tool, const ChatEntry& played) {
    const bool isUnnamed = !tool.title || *tool.title == "Using a tool";
    if (played.title && isUnnamed) tool.title = played.title;
    if (tool.text.empty()) tool.text = played.text;
    // One that was left open here may have ended there.
    if (tool.status != "completed" && played.status) tool.status = played.status;
  }

  const Side stored_, played_;
  std::unordered_map<std::string_view, std::size_t> turnOfTool_;        // stored ones
  std::unordered_map<std::string_view, const ChatEntry*> playedTools_;  // that are stored as well
  std::unordered_set<std::string> takenIDs_;
  std::vector<ChatEntry> result_;
};

}  // namespace

std::vector<ChatEntry> mergePlayback(const Transcript& stored, std::size_t turn,
                                     const Transcript& played) {
  const Entries all(std::to_address(stored.begin()), stored.size());
  const Entries history = all.first(std::min(turn, all.size()));
  const Entries present = all.subspan(history.size());
  const Entries back(std::to_address(played.begin()), played.size());
  auto merged = Merge(history, present, back).result();
  merged.insert(merged.end(), present.begin(), present.end());
  return merged;
}

}  // namespace vantrell
