#include "presentation/spoken_text.h"

#include <algorithm>

#include "platform/text/text.h"
#include "platform/text/utf8.h"
#include "presentation/white_space.h"

// Each step is one replacement of a regular expression, which stands above it. They are written out
// because a matcher goes back to the beginning of what does not match, and so takes quadratic time
// for a text full of beginnings.

namespace vantrell::SpokenText {

namespace {

constexpr auto none = std::string_view::npos;

/// Finds one text again and again from places that only go forward; all searches together read the
/// text once.
class ForwardSearch {
 public:
  ForwardSearch(std::string_view text, std::string_view needle) : text_(text), needle_(needle) {}

  std::size_t from(std::size_t at) {
    if (found_ != none && found_ < at) found_ = text_.find(needle_, at);
    return found_;
  }

 private:
  std::string_view text_;
  std::string_view needle_;
  std::size_t found_ = text_.find(needle_);
};

/// "(?s)```.*?```"
std::string withoutCode(std::string_view text) {
  constexpr std::string_view fence = "```";
  std::string out;
  std::size_t copied = 0;
  while (true) {
    const std::size_t open = text.find(fence, copied);
    const std::size_t close = open == none ? none : text.find(fence, open + fence.size());
    if (close == none) return out.append(text.substr(copied));
    out.append(text, copied, open - copied).append(" Code block omitted. ");
    copied = close + fence.size();
  }
}

/// "!\[([^\]]*)\]\([^)]*\)" and "\[([^\]]+)\]\([^)]*\)", replaced by the label.
std::string withoutLinks(std::string_view text, std::string_view opening, std::size_t shortest) {
  std::string out;
  std::size_t copied = 0;
  ForwardSearch labelEnds(text, "]");
  ForwardSearch ends(text, ")");
  std::size_t at = 0;
  while ((at = text.find(opening, at)) != none) {
    const std::size_t label = at + opening.size();
    const std::size_t labelEnd = labelEnds.from(label);
    if (labelEnd == none) break;
    const bool isLink = labelEnd >= label + shortest && text.substr(labelEnd + 1).starts_with('(');
    const std::size_t end = isLink ? ends.from(labelEnd + 2) : none;
    if (end == none) {
      ++at;
      continue;
    }
    out.append(text, copied, at - copied).append(text, label, labelEnd - label);
    copied = at = end + 1;
  }
  return out.append(text.substr(copied));
}

/// "`([^`]+)`", replaced by what is inside.
std::string withoutCodeMarks(std::string_view text) {
  std::string out;
  std::size_t copied = 0;
  std::size_t at = 0;
  while ((at = text.find('`', at)) != none) {
    const std::size_t close = text.find('`', at + 1);
    if (close == none) break;
    if (close == at + 1) {
      ++at;
      continue;
    }
    out.append(text, copied, at - copied).append(text, at + 1, close - at - 1);
    copied = at = close + 1;
  }
  return out.append(text.substr(copied));
}

/// The end of "(#{1,6}|>|[-+*]|\d+[.)])" at this place, or the place itself.
std::size_t endOfLineMark(std::string_view text, std::size_t at) {
  constexpr std::size_t mostSigns = 6;
  if (at >= text.size()) return at;
  if (text[at] == '#') {
    const std::size_t end = std::min(text.find_first_not_of('#', at), text.size());
    return end - at <= mostSigns ? end : at;
  }
  if (std::string_view(">-+*").contains(text[at])) return at + 1;
  std::size_t end = at;
  while (const std::size_t digit = text::decimalDigitAt(text, end)) end += digit;
  const bool isNumber = end > at && end < text.size() && (text[end] == '.' || text[end] == ')');
  return isNumber ? end + 1 : at;
}

/// "(?m)^\s{0,3}(#{1,6}|>|[-+*]|\d+[.)])\s+"
std::string withoutLineMarks(std::string_view text) {
  constexpr int mostBlanks = 3;
  std::string out;
  std::size_t copied = 0;
  std::size_t line = 0;
  while (line < text.size()) {
    std::size_t mark = line;
    for (int i = 0; i < mostBlanks; ++i) mark += white::at(text, mark);
    const std::size_t markEnd = endOfLineMark(text, mark);
    const std::size_t end = markEnd > mark ? white::skip(text, markEnd, white::at) : mark;
    if (end > markEnd) {
      out.append(text, copied, line - copied);
      copied = end;
      // The next beginning of a line may be right here.
      line = end;
      std::size_t last = 1;
      while (last < 3 && utf8::isContinuation(text[end - last])) ++last;
      if (white::breakAt(text, end - last) == last) continue;
    }
    std::size_t next = 0;
    while (line < text.size() && (next = white::breakAt(text, line)) == 0) ++line;
    line += next;
  }
  return out.append(text.substr(copied));
}

/// "<[^>]+>", replaced by a blank.
std::string withoutTags(std::string_view text) {
  std::string out;
  std::size_t copied = 0;
  std::size_t at = 0;
  ForwardSearch ends(text, ">");
  while ((at = text.find('<', at)) != none) {
    // The first sign inside may be anything but the end.
    const std::size_t end = ends.from(at + 1);
    if (end == none) break;
    if (end == at + 1) {
      ++at;
      continue;
    }
    out.append(text, copied, at - copied) += ' ';
    copied = at = end + 1;
  }
  return out.append(text.substr(copied));
}

/// "|", replaced by ", ", and then "\s+", replaced by a blank.
std::string onOneLine(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  bool isInBlank = false;
  const auto blank = [&] {
    if (!std::exchange(isInBlank, true)) out += ' ';
  };
  for (std::size_t at = 0; at < text.size();) {
    if (const std::size_t length = white::at(text, at)) {
      blank();
      at += length;
      continue;
    }
    const char c = text[at++];
    isInBlank = false;
    out += c == '|' ? ',' : c;
    if (c == '|') blank();
  }
  return out;
}

}  // namespace

std::string render(std::string_view text) {
  std::string spoken = withoutCode(text::repaired(text));
  spoken = withoutLinks(spoken, "![", 0);
  spoken = withoutLinks(spoken, "[", 1);
  spoken = withoutCodeMarks(spoken);
  spoken = withoutLineMarks(spoken);
  std::erase_if(spoken, [](char c) { return c == '*' || c == '_' || c == '~'; });
  spoken = onOneLine(withoutTags(spoken));
  return std::string(text::trimmed(spoken));
}

}  // namespace vantrell::SpokenText
