#include "shell/terminal/undecided_text.h"

#include <algorithm>

namespace vantrell::shell {

namespace {

constexpr std::size_t longestMark = 12;   // bytes, with its indentation
constexpr std::size_t longestRow = 2000;  // bytes; who writes a longer one is not waited for
constexpr std::string_view blanks = " \t\r";
constexpr std::string_view fence = "```";
/// What items, headings, dividers, quotes and fences begin with.
constexpr std::string_view markBytes = " \t-*+>#_`.)[]xX0123456789\xE2\x80\xA2";

std::string_view inked(std::string_view line) {
  return line.substr(std::min(line.find_first_not_of(blanks), line.size()));
}

bool isRow(std::string_view line) {
  return inked(line).starts_with('|');
}

}  // namespace

std::string UndecidedText::take(std::string_view text) {
  kept_ += text;
  const std::string_view all = kept_;
  const std::size_t lastBreak = all.rfind('\n');
  const std::size_t last = lastBreak == all.npos ? 0 : lastBreak + 1;
  std::size_t end = contextAt(last).isUndecided(all.substr(last)) ? last : all.size();
  if (last > 0 && end == last) {
    // The first row may become the headings of a table, once the second one is there.
    const std::size_t before = lastBreak == 0 ? all.npos : all.rfind('\n', lastBreak - 1);
    const std::size_t row = before == all.npos ? 0 : before + 1;
    const Context context = contextAt(row);
    const bool isFirst =
        !context.isInLine && !context.isInCode && !context.followsRow && isRow(all.substr(row));
    const bool mayGoOn = last == all.size() || isRow(all.substr(last));
    if (isFirst && mayGoOn && all.size() - row < longestRow) end = row;
  }
  std::string given(all.substr(0, end));
  given_ = contextAt(end);
  kept_.erase(0, end);
  return given;
}

std::string UndecidedText::release() {
  given_ = contextAt(kept_.size());
  return std::exchange(kept_, {});
}

UndecidedText::Context UndecidedText::contextAt(std::size_t end) const {
  Context context = given_;
  context.note(std::string_view(kept_).substr(0, end));
  return context;
}

bool UndecidedText::Context::isUndecided(std::string_view line) const {
  if (isInLine || line.empty()) return false;
  const auto ink = inked(line);
  if (isInCode) return line.size() <= longestMark && fence.starts_with(ink);
  if (ink.starts_with('|') || ink.starts_with(fence)) return line.size() < longestRow;
  return line.size() <= longestMark && line.find_first_not_of(markBytes) == line.npos;
}

void UndecidedText::Context::note(std::string_view text) {
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const auto line = text.substr(0, end);
    if (!isInLine) {
      if (inked(line).starts_with(fence)) isInCode = !isInCode;
      followsRow = isRow(line);
    }
    isInLine = end == text.npos;
    text.remove_prefix(isInLine ? text.size() : end + 1);
  }
}

}  // namespace vantrell::shell
