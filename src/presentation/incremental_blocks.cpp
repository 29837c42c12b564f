#include "presentation/incremental_blocks.h"

#include <algorithm>
#include <span>

#include "presentation/response_formatting.h"
#include "presentation/white_space.h"

namespace vantrell {

void IncrementalBlocks::append(std::string_view chunk) {
  if (chunk.empty()) return;
  const bool completesReturn = endsInReturn_ && chunk.front() == '\n';
  endsInReturn_ = chunk.back() == '\r';
  if (completesReturn) chunk.remove_prefix(1);
  text_ += ResponseFormatting::withLineFeeds(chunk);
  isParsed_ = false;
}

const std::vector<ResponseBlock>& IncrementalBlocks::blocks() {
  if (std::exchange(isParsed_, true)) return blocks_;
  if (isAtStart_) text_.erase(0, white::skip(text_, 0, white::at));
  const std::size_t end = white::trimEnd(text_, 0, text_.size(), white::at);
  const auto text = std::string_view(text_).substr(0, end);
  if (prose_ == Prose::asWritten || (!isStructured_ && ResponseFormatting::hasStructure(text))) {
    isStructured_ = true;
  }
  blocks_.resize(settled_);
  const std::size_t kept = settled_;
  if (isStructured_) {
    const auto settled = ResponseFormatting::appendBlocks(text, blocks_);
    settled_ = settled.blocks;
    isAtStart_ = isAtStart_ && settled.bytes == 0;
    text_.erase(0, settled.bytes);
  } else {
    ResponseFormatting::appendBlocks(ResponseFormatting::structureDenseResponse(text), blocks_);
  }
  if (const std::size_t known = ids_.size(); known < blocks_.size()) {
    // Each call of the system's generator has its price.
    ids_.resize(blocks_.size() + std::max<std::size_t>(16, known / 2));
    Uuid::random(std::span(ids_).subspan(known));
  }
  for (std::size_t i = kept; i < blocks_.size(); ++i) blocks_[i].id = ids_[i];
  return blocks_;
}

std::size_t IncrementalBlocks::settledCount() {
  blocks();
  return settled_;
}

}  // namespace vantrell
