// A terminal small enough for a test: what a person would see after the given bytes. Knows the few
// movements that Vantrell uses; any other escape sequence shows up as text.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vantrell::tests {

class Screen {
 public:
  void write(std::string_view bytes) {
    for (std::size_t at = 0; at < bytes.size(); ++at) {
      const char byte = bytes[at];
      if (byte == '\n') {
        ++row_;
        column_ = 0;
      } else if (byte == '\r') {
        column_ = 0;
      } else if (byte == '\x1b') {
        const auto last = bytes.find_first_of("AJKm", at);
        perform(bytes[last], bytes.substr(at + 2, last - at - 2));
        at = last;
      } else {
        put(byte);
      }
    }
  }
  /// Rows without the empty ones at the end.
  std::string text() const {
    std::string all;
    for (const auto& row : rows_) all += row + "\n";
    while (all.ends_with("\n\n")) all.pop_back();
    return all;
  }

 private:
  void perform(char command, std::string_view argument) {
    if (command == 'A') row_ -= std::stoul(std::string(argument));
    if (command == 'J') {
      rows_.resize(std::min(rows_.size(), row_ + 1));
    }
    if (command == 'J' || command == 'K') line().resize(std::min(line().size(), column_));
  }
  std::string& line() {
    if (rows_.size() <= row_) rows_.resize(row_ + 1);
    return rows_[row_];
  }
  void put(char byte) {
    std::string& present = line();
    if (present.size() <= column_) present.resize(column_ + 1, ' ');
    present[column_++] = byte;
  }

  std::vector<std::string> rows_;
  std::size_t row_ = 0;
  std::size_t column_ = 0;  // bytes
};

}  // namespace vantrell::tests
