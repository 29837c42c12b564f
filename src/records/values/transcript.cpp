#include "records/values/transcript.h"

#include <bit>
#include <functional>

namespace vantrell {

namespace {
std::size_t hashOf(std::string_view id) {
  return std::hash<std::string_view>{}(id);
}
constexpr std::size_t smallestTable = 16;
}  // namespace

Transcript::Transcript(std::size_t count, Loader load)
    : unread_(count == 0 ? nullptr : std::make_unique<Unread>(count, std::move(load))) {
  journal_.take(count);
}

Transcript::Transcript(const Transcript& other) : entries_(other.entries()) {}

Transcript& Transcript::operator=(const Transcript& other) {
  if (this != &other) *this = Transcript(other);
  return *this;
}

void Transcript::readNow() const {
  // Away first: a loader that looks back here must not begin again.
  const auto unread = std::move(unread_);
  entries_ = unread->load();
}

ChatEntry& Transcript::operator[](std::size_t index) {
  if (unread_) readNow();
  journal_.changed(index);
  return entries_[index];
}

std::optional<std::size_t> Transcript::indexOf(std::string_view id) const {
  if (indexed_ != entries().size() || slots_.empty()) rebuildIndex();
  const std::size_t mask = slots_.size() - 1;
  for (std::size_t slot = hashOf(id) & mask; slots_[slot] != 0; slot = (slot + 1) & mask) {
    const std::size_t position = slots_[slot] - 1;
    if (entries_[position].id == id) return position;
  }
  return std::nullopt;
}

const ChatEntry* Transcript::find(std::string_view id) const {
  const auto position = indexOf(id);
  return position ? &entries_[*position] : nullptr;
}

ChatEntry* Transcript::find(std::string_view id) {
  const auto position = indexOf(id);
  if (!position) return nullptr;
  journal_.changed(*position);
  return &entries_[*position];
}

const ChatEntry& Transcript::append(ChatEntry entry) {
  if (unread_) readNow();
  const bool indexIsCurrent = !slots_.empty() && indexed_ == entries_.size();
  entries_.push_back(std::move(entry));
  if (indexIsCurrent && entries_.size() * 2 <= slots_.size()) addToIndex(entries_.size() - 1);
  return entries_.back();
}

void Transcript::truncate(std::size_t count) {
  if (count >= size()) return;
  if (unread_) readNow();
  entries_.resize(count);
  journal_.shortenedTo(count);
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
