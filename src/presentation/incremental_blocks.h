// The blocks of an answer that is still being written: whenever they are read, they are what
// ResponseFormatting::blocks gives for all the text so far. Appending costs what the chunk costs. A
// read costs a parse of the text behind the last settled block, so at most of one block and the
// line behind it (1 MiB of one paragraph: 3 ms); of prose that may still be broken up, of all the
// text. Read once a frame, not once a chunk. One thread at a time.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "presentation/response_block.h"

namespace vantrell {

class IncrementalBlocks {
 public:
  /// `asWritten` never breaks prose up, so that no line moves to another paragraph later.
  enum class Prose { brokenUp, asWritten };
  explicit IncrementalBlocks(Prose prose = Prose::brokenUp) : prose_(prose) {}

  void append(std::string_view chunk);

  /// The id belongs to the place in the list and stays while what stands there grows or changes.
  const std::vector<ResponseBlock>& blocks();
  /// How many of them nothing that follows can change. Prose that may still be broken up has none.
  std::size_t settledCount();

 private:
  Prose prose_;
  std::string text_;  // behind the settled blocks; line feeds only
  bool endsInReturn_ = false;
  bool isAtStart_ = true;  // of the whole text
  bool isStructured_ = false;
  bool isParsed_ = true;
  std::vector<ResponseBlock> blocks_;
  std::vector<Uuid> ids_;  // of the places, more than are in use
  std::size_t settled_ = 0;
};

}  // namespace vantrell
