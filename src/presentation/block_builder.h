// Lines into blocks, for a text that grows at its end: only the last line (two, where it may make a
// table of the one before) is looked at again, and a block that grows has its new bytes appended.
// So the cost is that of what is new, whatever was there. Without a queue: one thread at a time.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/values/uuid.h"
#include "presentation/line_reading.h"
#include "presentation/response_block.h"

namespace vantrell {

/// Blocks in order. A place keeps its id while what stands there is made anew.
class BlockList {
 public:
  std::vector<ResponseBlock> blocks;

  ResponseBlock& add(ResponseBlock::Kind kind);
  void truncate(std::size_t count);
  /// Takes over the ids of an earlier list for blocks that are in both, at the same place or in
  /// what the lists end with.
  void takeIDs(const std::vector<ResponseBlock>& earlier);

 private:
  std::vector<Uuid> ids_;  // of the blocks, and of those that stood behind them; then fresh ones
};

/// Builds the blocks of one text behind those that are in the list already; nobody else may change
/// what it has added.
class BlockBuilder {
 public:
  explicit BlockBuilder(BlockList& list);

  /// Adds text whose line ends are line feeds. White space at both ends of the whole text does not
  /// count. A character is never cut between two calls.
  void append(std::string_view text);
  /// The same as the first and only call, with a text that is not needed any more.
  void take(std::string text);
  /// How many blocks of the list can no longer change.
  std::size_t settledCount() const;

  /// A place in the last line to come back to.
  struct Mark {
    std::size_t size;
    std::size_t end;
    LineReader line;
    SeparatorReader separator;
  };
  Mark mark() const { return {text_.size(), end_, line_, separator_}; }
  /// Takes back what was appended since; no line may have ended in between.
  void rewind(const Mark& mark);

 private:
  enum class Open { none, paragraph, code, table };
  /// What the next line meets, and what it takes to come back to it.
  struct State {
    Open open = Open::none;
    bool hasCodeLines = false;
    std::size_t cells = 0;  // of the open table
    std::size_t blocks = 0;
    std::size_t textSize = 0;  // of the open block
    std::size_t rows = 0;
    std::string cut;  // what closing the paragraph has cut off
  };
  State save() const;
  void restore(const State& state);

  void update();
  void finishLine(std::size_t end);
  void showLastLine();
  void takeBackLastLine();
  LineReading readLine(const State& state);
  void apply(const LineReading& reading, std::size_t lineEnd);
  void addText(ResponseBlock::Kind kind, const LineReading& reading);
  void startTable();
  void closeParagraph();
  std::string_view slice(const LineReading& reading) const;
  std::string* textOf(const LineReading& reading);
  std::string_view contentOf(std::size_t begin, std::size_t end) const;

  BlockList& list_;
  std::string text_;
  std::size_t end_ = 0;       // without the white space at the end
  std::size_t searched_ = 0;  // for the end of the last line
  State state_;               // with the last line in it while that is shown

  LineReader line_;  // the last line, which may go on
  SeparatorReader separator_;

  /// A line that becomes the headers of a table if the last line is a separator.
  struct Header {
    std::size_t begin;
    std::size_t end;
    std::size_t cells;
    State before;
    LineReading reading;
  };
  std::optional<Header> header_;

  /// What the last line has done.
  struct Shown {
    State before;
    LineReading reading;
    bool startsTable;
  };
  std::optional<Shown> shown_;
};

}  // namespace vantrell
