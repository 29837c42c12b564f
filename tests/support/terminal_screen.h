// A terminal small enough for a test: what a person would see after the given bytes. Knows the few
// movements that Vantrell uses and characters of one column; any other escape sequence shows up as
// text. It is as high as it needs to be, and lines do not wrap.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/text/utf8.h"

namespace vantrell::tests {

class TerminalScreen {
 public:
  void write(std::string_view bytes) {
    while (!bytes.empty()) {
      if (bytes.starts_with("\x1b[") && perform(bytes)) continue;
      const auto length = utf8::sequenceAt(bytes.data(), bytes.data() + bytes.size()).length;
      put(bytes.substr(0, length));
      bytes.remove_prefix(length);
    }
  }

  /// All lines without empty ones at the end.
  std::string text() const {
    std::string all;
    for (const auto& row : rows_) {
      for (const auto& cell : row) all += cell;
      while (all.ends_with(' ')) all.pop_back();
      all += '\n';
    }
    while (all.ends_with("\n\n")) all.pop_back();
    return all;
  }

 private:
  bool perform(std::string_view& bytes) {
    const auto last = bytes.find_first_not_of("0123456789;", 2);
    if (last == bytes.npos || !std::string_view("AJKm").contains(bytes[last])) return false;
    const char command = bytes[last];
    if (command == 'A')
      row_ -= std::min<std::size_t>(row_, std::stoul(std::string(bytes.substr(2))));
    if (command == 'J' || command == 'K') rows_[row_].resize(std::min(rows_[row_].size(), column_));
    if (command == 'J') rows_.resize(row_ + 1);
    bytes.remove_prefix(last + 1);
    return true;
  }
  void put(std::string_view character) {
    if (character == "\r" || character == "\n") {
      column_ = 0;
      if (character == "\n" && ++row_ == rows_.size()) rows_.emplace_back();
      return;
    }
    auto& row = rows_[row_];
    if (row.size() <= column_) row.resize(column_ + 1, " ");
    row[column_++] = character;
  }

  std::vector<std::vector<std::string>> rows_{1};
  std::size_t row_ = 0;
  std::size_t column_ = 0;
};

}  // namespace vantrell::tests
