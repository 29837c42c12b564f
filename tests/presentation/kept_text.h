// That no text of an answer is lost on its way into blocks. All that may be missing is white space,
// the marks of the layout, and what stands behind the fence that ends code.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/text/text.h"
#include "platform/text/utf8.h"
#include "presentation/response_block.h"
#include "presentation/response_formatting.h"
#include "presentation/white_space.h"

namespace vantrell::testing {

/// Goes over a text and its blocks together.
class KeptText {
 public:
  explicit KeptText(std::string_view text) : rest_(text) {}

  bool holds(const ResponseBlock& block) {
    using B = ResponseBlock;
    if (const auto* code = std::get_if<B::Code>(&block.kind)) {
      return take("```" + code->language.value_or("")) && takeCode(block.text);
    }
    if (const auto* table = std::get_if<ResponseTable>(&block.kind)) {
      return take(text::joined(table->headers, "|")) &&
             std::ranges::all_of(table->rows,
                                 [this](const auto& row) { return take(text::joined(row, "|")); });
    }
    if (const auto* item = std::get_if<B::Checklist>(&block.kind)) {
      if (!take("[") || (item->checked && !take("x") && !take("X")) || !take("]")) return false;
    }
    const auto* item = std::get_if<B::Numbered>(&block.kind);
    return (!item || item->number == 0 || take(std::to_string(item->number))) && take(block.text);
  }

  /// Where a text that no block has begins; empty when nothing but marks is left.
  std::string_view rest() {
    while (skipMark()) {
    }
    return rest_;
  }

 private:
  bool skipMark() {
    std::size_t length = white::at(rest_, 0);
    if (length == 0 && rest_.starts_with("\u2022")) length = 3;
    if (length == 0 && !rest_.empty() && std::string_view("#-*+>|:._`)0").contains(rest_[0])) {
      length = 1;
    }
    rest_.remove_prefix(length);
    return length > 0;
  }

  /// Takes the wanted text, with white space and marks between. Takes nothing when it is not there.
  bool take(std::string_view wanted) {
    const std::string_view before = rest_;
    while (!wanted.empty()) {
      const char* const end = wanted.data() + wanted.size();
      const std::size_t length = utf8::sequenceAt(wanted.data(), end).length;
      if (const std::size_t blank = white::at(wanted, 0)) {
        wanted.remove_prefix(blank);
      } else if (rest_.starts_with(wanted.substr(0, length))) {
        wanted.remove_prefix(length);
        rest_.remove_prefix(length);
      } else if (!skipMark()) {
        rest_ = before;
        return false;
      }
    }
    return true;
  }

  void skipLine() { rest_.remove_prefix(std::min(rest_.find('\n'), rest_.size() - 1) + 1); }

  bool takeCode(std::string_view code) {
    if (!rest_.empty()) skipLine();
    if (!rest_.starts_with(code)) return false;
    rest_.remove_prefix(code.size());
    if (rest_.starts_with('\n')) rest_.remove_prefix(1);
    if (!rest_.empty() && white::trimmedOfBlanks(rest_).starts_with("```")) skipLine();
    return true;
  }

  std::string_view rest_;
};

/// What of an answer is in no block; empty when all is there.
inline std::string lostOf(std::string_view text) {
  const std::string laidOut = ResponseFormatting::structureDenseResponse(text);
  KeptText kept(laidOut);
  for (const auto& block : ResponseFormatting::blocks(text)) {
    if (!kept.holds(block)) return block.text + " is not at " + std::string(kept.rest());
  }
  return std::string(kept.rest());
}

}  // namespace vantrell::testing
