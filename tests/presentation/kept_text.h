// That no text of an answer is lost on its way into blocks. White space aside, all that may be
// missing are the marks of the layout: the "#" of a heading, the mark of an item and its box, the
// zeros before a number, the ">" of a quote, a divider, the separator of a table and the pipes
// around a row, the fences of code, and what stands behind the fence that ends it.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "platform/text/text.h"
#include "presentation/response_block.h"
#include "presentation/response_formatting.h"
#include "presentation/white_space.h"

namespace vantrell::testing {

/// All but the white space.
inline std::string inkOf(std::string_view text) {
  std::string ink;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t blank = white::at(text, at);
    if (blank == 0) ink += text[at];
    at += std::max<std::size_t>(blank, 1);
  }
  return ink;
}

/// Goes over the lines of a text and its blocks together. The marks are taken off by the kind of
/// the block, so that it says nothing about which kind a line should be.
class KeptText {
 public:
  /// The line whose text is not in the blocks; empty when all is there. The text has line feeds.
  static std::string firstLost(std::string_view text, const std::vector<ResponseBlock>& blocks) {
    KeptText walk(text);
    for (const auto& block : blocks) {
      while (walk.at_ < walk.lines_.size() && inkOf(walk.lines_[walk.at_]).empty()) ++walk.at_;
      if (walk.at_ == walk.lines_.size()) return "a block of nothing";
      const std::size_t first = walk.at_;
      const bool isKept =
          std::visit([&](const auto& kind) { return walk.keeps(kind, block.text); }, block.kind);
      if (!isKept) return "line " + std::to_string(first) + ": " + std::string(walk.lines_[first]);
    }
    for (; walk.at_ < walk.lines_.size(); ++walk.at_) {
      if (!inkOf(walk.lines_[walk.at_]).empty()) return std::string(walk.lines_[walk.at_]);
    }
    return {};
  }

 private:
  using B = ResponseBlock;
  explicit KeptText(std::string_view text) : lines_(text::split(text, '\n')) {}

  std::string ink() { return at_ < lines_.size() ? inkOf(lines_[at_]) : std::string(); }
  bool takes(const std::string& expected) { return ink() == expected && ++at_ > 0; }
  bool takesItem(const std::string& rest) {
    for (const std::string mark : {"-", "*", "+", "\xE2\x80\xA2"}) {
      if (takes(mark + rest)) return true;
    }
    return false;
  }
  bool keeps(const B::Heading& heading, std::string_view text) {
    return takes(std::string(static_cast<std::size_t>(heading.level), '#') + inkOf(text));
  }
  bool keeps(const B::Bullet&, std::string_view text) { return takesItem(inkOf(text)); }
  bool keeps(const B::Checklist& item, std::string_view text) {
    const std::string rest = inkOf(text);
    return item.checked ? takesItem("[x]" + rest) || takesItem("[X]" + rest)
                        : takesItem("[]" + rest);
  }
  bool keeps(const B::Numbered& item, std::string_view text) {
    const std::string line = ink();
    std::string number = line.substr(0, line.find_first_not_of('0'));
    if (item.number != 0) number += std::to_string(item.number);
    return takes(number + "." + inkOf(text)) || takes(number + ")" + inkOf(text));
  }
  bool keeps(const B::Quote&, std::string_view text) { return takes(">" + inkOf(text)); }
  bool keeps(const B::Divider&, std::string_view) {
    const std::string line = ink();
    ++at_;
    return line.size() >= 3 && std::string_view("-*_").contains(line[0]) &&
           line.find_first_not_of(line[0]) == line.npos;
  }
  bool keeps(const B::Paragraph&, std::string_view text) {
    const std::string all = inkOf(text);
    for (std::string_view left = all; !left.empty(); ++at_) {
      const std::string line = ink();
      if (at_ == lines_.size() || !left.starts_with(line)) return false;
      left.remove_prefix(line.size());
    }
    return true;
  }
  bool keeps(const ResponseTable& table, std::string_view) {
    const auto isRow = [&](const std::vector<std::string>& cells) {
      const std::string line = ink();
      const std::string row = inkOf(text::joined(cells, "|"));
      const std::size_t at = std::min(line.find(row), line.size());
      const std::string around =
          line.substr(0, at) + line.substr(std::min(at + row.size(), line.size()));
      ++at_;
      return at < line.size() && cells.size() == table.headers.size() &&
             around.find_first_not_of('|') == around.npos;
    };
    if (!isRow(table.headers) || ink().find_first_not_of("-:|") != std::string::npos) return false;
    ++at_;
    return std::ranges::all_of(table.rows, isRow);
  }
  bool keeps(const B::Code& code, std::string_view text) {
    if (!takes("```" + inkOf(code.language.value_or("")))) return false;
    const auto isOpen = [this] {
      return at_ < lines_.size() && !white::trimmedOfBlanks(lines_[at_]).starts_with("```");
    };
    std::string inside;
    for (std::string_view between; isOpen(); between = "\n") {
      inside.append(between).append(lines_[at_++]);
    }
    at_ += at_ < lines_.size();  // the fence at the end, with what stands behind it
    return inside == text;
  }

  const std::vector<std::string_view> lines_;
  std::size_t at_ = 0;
};

/// What of an answer is in no block; empty when all is there.
inline std::string lostOf(std::string_view text) {
  const std::string laidOut = ResponseFormatting::structureDenseResponse(text);
  if (inkOf(laidOut) != inkOf(text)) return laidOut;
  return KeptText::firstLost(laidOut, ResponseFormatting::blocks(text));
}

}  // namespace vantrell::testing
