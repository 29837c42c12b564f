#include "records/values/transcript.h"

#include <bit>
#include <functional>
#include <iterator>
#include <utility>

namespace vantrell {

namespace {
std::size_t hashOf(std::string_view id) {
  return std::hash<std::string_view>{}(id);
}
constexpr std::size_t smallestTable = 16;
}  // namespace

Transcript::Transcript(std::size_t count, std::shared_ptr<Source> source)
    : source_(count == 0 ? nullptr : std::move(source)), unreadCount_(count) {}

Transcript::Transcript(const Transcript& other) : entries_(other.all()) {}

Transcript& Transcript::operator=(const Transcript& other) {
  if (this != &other) *this = Transcript(other);
  return *this;
}

void Transcript::readNow() const {
  // Away first: a source that looks back here must not begin again.
  const auto source = std::move(source_);
  auto all = source->read(0, unreadCount_);
  std::ranges::move(entries_, std::back_inserter(all));
  entries_ = std::move(all);
  dropIndex();
}

void Transcript::prepend(std::vector<ChatEntry> entries) {
  if (!source_ || entries.size() > unreadCount_) return;
  unreadCount_ -= entries.size();
  std::ranges::move(entries_, std::back_inserter(entries));
  entries_ = std::move(entries);
  dropIndex();
  if (unreadCount_ == 0) source_.reset();
}

void Transcript::complete(Transcript earlier) {
  if (!source_ || earlier.size() != unreadCount_) return;
  for (auto& each : entries_) earlier.append(std::move(each));
  *this = std::move(earlier);
}

const ChatEntry& Transcript::operator[](std::size_t index) const {
  if (index < unread()) readNow();
  return entries_[index - unread()];
}

ChatEntry& Transcript::operator[](std::size_t index) {
  return const_cast<ChatEntry&>(std::as_const(*this)[index]);
}

std::optional<std::size_t> Transcript::indexInMemory(std::string_view id) const {
  if (indexed_ != entries_.size() || slots_.empty()) rebuildIndex();
  const std::size_t mask = slots_.size() - 1;
  for (std::size_t slot = hashOf(id) & mask; slots_[slot] != 0; slot = (slot + 1) & mask) {
    const std::size_t position = slots_[slot] - 1;
    if (entries_[position].id == id) return position;
  }
  return std::nullopt;
}

std::optional<std::size_t> Transcript::indexOf(std::string_view id) const {
  auto place = indexInMemory(id);
  if (!place && source_) {
    readNow();
    place = indexInMemory(id);
  }
  return place ? std::optional(*place + unread()) : std::nullopt;
}

const ChatEntry* Transcript::find(std::string_view id) const {
  const auto place = indexOf(id);
  return place ? &(*this)[*place] : nullptr;
}

ChatEntry* Transcript::find(std::string_view id) {
  return const_cast<ChatEntry*>(std::as_const(*this).find(id));
}

const ChatEntry& Transcript::append(ChatEntry entry) {
  const bool indexIsCurrent = !slots_.empty() && indexed_ == entries_.size();
  entries_.push_back(std::move(entry));
  if (indexIsCurrent && entries_.size() * 2 <= slots_.size()) addToIndex(entries_.size() - 1);
  return entries_.back();
}

void Transcript::truncate(std::size_t count) {
  if (count >= size()) return;
  if (count <= unread()) {
    entries_.clear();
    unreadCount_ = count;
    if (count == 0) source_.reset();
  } else {
    entries_.resize(count - unread());
  }
  dropIndex();
}

void Transcript::dropIndex() const {
  slots_.clear();
  indexed_ = 0;
}

void Transcript::addToIndex(std::size_t position) const {
  const std::size_t mask = slots_.size() - 1;
  std::size_t slot = hashOf(entries_[position].id) & mask;
  while (slots_[slot] != 0) {
    if (entries_[slots_[slot] - 1].id == entries_[position].id) break;  // the first one stays
    slot = (slot + 1) & mask;
  }
  if (slots_[slot] == 0) slots_[slot] = static_cast<std::uint32_t>(position + 1);
  indexed_ = position + 1;
}

void Transcript::rebuildIndex() const {
  // Four slots an entry, so that the next rebuild is a doubling away.
  slots_.assign(std::bit_ceil(std::max(entries_.size() * 4, smallestTable)), 0);
  indexed_ = 0;
  for (std::size_t position = 0; position < entries_.size(); ++position) addToIndex(position);
}

}  // namespace vantrell
