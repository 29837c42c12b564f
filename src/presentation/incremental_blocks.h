// The blocks of an answer that is still being written. After each chunk they are what
// ResponseFormatting::blocks gives for all the text so far, and making them costs what the chunk
// costs, whatever came before. Owned by whoever shows the answer; one thread at a time.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "presentation/block_builder.h"
#include "presentation/character_counter.h"
#include "presentation/dense_prose.h"

namespace vantrell {

class IncrementalBlocks {
 public:
  IncrementalBlocks() = default;
  IncrementalBlocks(const IncrementalBlocks&) = delete;
  IncrementalBlocks& operator=(const IncrementalBlocks&) = delete;

  /// Takes the next bytes. A code point that they cut in two is shown once it is whole.
  void append(std::string_view chunk);
  /// Says that nothing more comes: what was cut is shown as it stands.
  void finish();

  /// A block that has not changed keeps its id, and so does one that has only grown.
  const std::vector<ResponseBlock>& blocks() const { return list_.blocks; }
  /// How many of them nothing that follows can change. Prose that may still have to be broken up
  /// has none.
  std::size_t settledCount() const;

 private:
  void take(std::string_view text);
  void takeUndecided(std::string_view text);
  template <typename Make>
  void remake(Make make);

  BlockList list_;
  std::string cut_;  // the beginning of a code point
  bool endsInReturn_ = false;
  std::string buffer_;

  /// Until the text shows structure, all of it is kept: it may have to be read in the other way.
  bool isStructured_ = false;
  std::string source_;
  std::size_t end_ = 0;  // without white space at the end
  denseProse::StructureSearch structure_;
  std::size_t counted_ = 0;
  CharacterCounter counter_;

  std::optional<BlockBuilder> lines_;
  std::optional<DenseProseBuilder> prose_;
};

}  // namespace vantrell
