#include "presentation/incremental_blocks.h"

#include <algorithm>

#include "platform/text/utf8.h"
#include "presentation/white_space.h"

namespace vantrell {

namespace {

/// Where a code point begins that the end of the text cuts in two; the end where none does.
std::size_t wholeCodePoints(std::string_view text) {
  const std::size_t size = text.size();
  for (std::size_t length = 1; length <= std::min<std::size_t>(size, 3); ++length) {
    const auto byte = static_cast<unsigned char>(text[size - length]);
    if (byte < 0x80) break;
    if (byte < 0xC0) continue;
    const std::size_t whole = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : 2;
    const auto sequence = utf8::sequenceAt(text.data() + size - length, text.data() + size);
    // An invalid beginning is not waited for: nothing makes it whole.
    const bool isCut = !sequence.valid && sequence.length == length && length < whole &&
                       byte >= 0xC2 && byte <= 0xF4;
    return isCut ? size - length : size;
  }
  return size;
}

}  // namespace

void IncrementalBlocks::append(std::string_view chunk) {
  if (chunk.empty()) return;
  std::string whole;
  if (!cut_.empty()) {
    whole = std::exchange(cut_, {});
    whole += chunk;
    chunk = whole;
  }
  const std::size_t end = wholeCodePoints(chunk);
  cut_ = chunk.substr(end);
  chunk = chunk.substr(0, end);
  if (chunk.empty()) return;
  if (endsInReturn_ && chunk.front() == '\n') chunk.remove_prefix(1);
  if (chunk.empty()) {
    endsInReturn_ = false;
    return;
  }
  endsInReturn_ = chunk.back() == '\r';
  if (chunk.find('\r') == chunk.npos) return take(chunk);
  buffer_.clear();
  for (std::size_t i = 0; i < chunk.size(); ++i) {
    if (chunk[i] == '\r' && i + 1 < chunk.size() && chunk[i + 1] == '\n') continue;
    buffer_ += chunk[i] == '\r' ? '\n' : chunk[i];
  }
  take(buffer_);
}

void IncrementalBlocks::finish() {
  if (!cut_.empty()) take(std::exchange(cut_, {}));
}

std::size_t IncrementalBlocks::settledCount() const {
  return isStructured_ && lines_ ? lines_->settledCount() : 0;
}

void IncrementalBlocks::take(std::string_view text) {
  if (!lines_ && !prose_) lines_.emplace(list_);
  if (isStructured_) return lines_->append(text);
  takeUndecided(text);
}

template <typename Make>
void IncrementalBlocks::remake(Make make) {
  lines_.reset();
  prose_.reset();
  const auto earlier = std::exchange(list_, {}).blocks;
  make();
  list_.takeIDs(earlier);
}

void IncrementalBlocks::takeUndecided(std::string_view text) {
  if (source_.empty()) text.remove_prefix(white::skip(text, 0, white::at));
  const std::size_t from = source_.size();
  source_ += text;
  const std::size_t end = white::trimEnd(source_, from, source_.size(), white::at);
  if (end > from) end_ = end;
  const std::string_view inked = std::string_view(source_).substr(0, end_);
  isStructured_ = structure_.finds(inked);
  if (isStructured_) {
    if (prose_) {
      remake([this] { lines_.emplace(list_).append(source_); });
    } else {
      lines_->append(text);
    }
    source_ = {};
    return;
  }
  if (!prose_) {
    counter_.add(inked.substr(counted_));
    counted_ = end_;
    if (counter_.count() <= denseProse::longestPlain) return lines_->append(text);
    remake([&] { prose_.emplace(list_).grow(inked); });
    return;
  }
  if (end > from) prose_->grow(inked);
}

}  // namespace vantrell
