// A terminal small enough for a test: what a person would see after the given bytes, with what has
// scrolled away. Knows the few movements that Vantrell uses and wraps as terminals do (a line that
// is full wraps when the next character comes); any other escape sequence shows up as text.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/text/text.h"
#include "platform/text/utf8.h"

namespace vantrell::tests {

class TerminalScreen {
 public:
  explicit TerminalScreen(std::size_t columns = 80, std::size_t rows = 24)
      : columns_(columns), height_(rows) {}

  void write(std::string_view bytes) {
    written_ += bytes.size();
    while (!bytes.empty()) {
      if (bytes[0] == '\n') {
        moveDown();
        column_ = 0;
      } else if (bytes[0] == '\r') {
        column_ = 0;
      } else if (bytes.starts_with("\x1b[") && perform(bytes)) {
        continue;
      } else {
        const auto length = utf8::sequenceAt(bytes.data(), bytes.data() + bytes.size()).length;
        put(bytes.substr(0, length));
        bytes.remove_prefix(length);
        continue;
      }
      bytes.remove_prefix(1);
    }
  }
  /// As a terminal that keeps lines as they are does. At most as narrow as they are wide.
  void resize(std::size_t columns, std::size_t rows) {
    columns_ = columns;
    height_ = rows;
    if (row_ >= top_ + height_) top_ = row_ + 1 - height_;
  }

  /// All lines without empty ones at the end; rows that the terminal has wrapped are one line.
  std::string text() const {
    return joined([](const Row& row, std::size_t i) { return row.cells[i]; });
  }
  /// The same with a digit for each character: 1 for bold, 2 for dim and 4 for cyan, added up.
  std::string looks() const {
    return joined([](const Row& row, std::size_t i) {
      const bool isInked = !row.cells[i].empty() && row.cells[i] != " ";
      return isInked ? std::to_string(row.looks[i]) : row.cells[i];
    });
  }
  /// How often somebody tried to move above the top.
  int missedMoves() const { return missedMoves_; }
  std::size_t bytesWritten() const { return written_; }

 private:
  struct Row {
    std::vector<std::string> cells;  // the second column of a wide character is empty
    std::vector<int> looks;          // of the cells
    bool wraps = false;

    void resize(std::size_t size) {
      cells.resize(size, " ");
      looks.resize(size);
    }
  };

  template <typename CellOf>
  std::string joined(CellOf cellOf) const {
    std::string all;
    for (const auto& row : rows_) {
      for (std::size_t i = 0; i < row.cells.size(); ++i) all += cellOf(row, i);
      while (!row.wraps && all.ends_with(' ')) all.pop_back();
      if (!row.wraps) all += '\n';
    }
    while (all.ends_with("\n\n")) all.pop_back();
    return all;
  }

  void takeLook(std::string_view argument) {
    for (const auto each : text::split(argument, ';')) {
      if (each == "0") look_ = 0;
      if (each == "1") look_ |= 1;
      if (each == "2") look_ |= 2;
      if (each == "36") look_ |= 4;
      if (each == "22") look_ &= ~3;
      if (each == "39") look_ &= ~4;
    }
  }
  bool perform(std::string_view& bytes) {
    const auto last = bytes.find_first_not_of("0123456789;", 2);
    if (last == bytes.npos || !std::string_view("ACJKm").contains(bytes[last])) return false;
    const std::string argument(bytes.substr(2, last - 2));
    const char command = bytes[last];
    bytes.remove_prefix(last + 1);
    if (command == 'm') takeLook(argument);
    if (command == 'A') {
      const std::size_t up = std::stoul(argument);
      if (up > row_ - top_) ++missedMoves_;
      row_ -= std::min(up, row_ - top_);
    }
    if (command == 'C') column_ = std::min(column_ + std::stoul(argument), columns_ - 1);
    if (command == 'J' || command == 'K') {
      // A cursor that waits to wrap stands on the last column.
      const std::size_t from = std::min(column_, columns_ - 1);
      Row& row = line();
      row.resize(std::min(row.cells.size(), from));
      row.wraps = false;
      if (command == 'J') rows_.resize(row_ + 1);
    }
    return true;
  }
  Row& line() {
    if (rows_.size() <= row_) rows_.resize(row_ + 1);
    return rows_[row_];
  }
  void moveDown() {
    ++row_;
    if (row_ >= top_ + height_) top_ = row_ + 1 - height_;
    line();
  }
  void put(std::string_view character) {
    const std::size_t width = character[0] == '\x1b' ? 1 : text::columnCount(character);
    if (width == 0) {
      for (std::size_t i = std::min(column_, line().cells.size()); i-- > 0;) {
        if (line().cells[i].empty()) continue;
        line().cells[i] += character;
        return;
      }
      line().resize(std::max<std::size_t>(line().cells.size(), 1));
      line().cells[0] += character;
      return;
    }
    if (column_ + width > columns_ && column_ > 0) {
      line().wraps = true;
      moveDown();
      column_ = 0;
    }
    auto& cells = line().cells;
    if (cells.size() < column_ + width) line().resize(column_ + width);
    cells[column_] = character;
    line().looks[column_] = look_;
    if (width == 2) cells[column_ + 1] = "";
    column_ += width;
  }

  std::vector<Row> rows_;  // with those that have scrolled away
  std::size_t columns_;
  std::size_t height_;
  std::size_t top_ = 0;  // the first that is on the screen
  std::size_t row_ = 0;
  std::size_t column_ = 0;
  int look_ = 0;
  int missedMoves_ = 0;
  std::size_t written_ = 0;
};

}  // namespace vantrell::tests
