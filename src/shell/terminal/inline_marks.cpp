#include "shell/terminal/inline_marks.h"

#include <algorithm>
#include <optional>

namespace vantrell::shell {

namespace {

constexpr std::size_t none = std::string_view::npos;
/// Longer runs are fences and rules that have come into a text.
constexpr std::size_t longestRun = 2;

bool isBlank(char byte) {
  return byte == ' ' || byte == '\t' || byte == '\n';
}

/// Within words (2**8) and paths (src/**/x) stars mean something else.
bool isOuter(char byte) {
  const bool isWord =
      (byte >= '0' && byte <= '9') || (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
  return !isWord && !std::string_view("/\\_").contains(byte);
}

/// Characters of one kind, without others of it beside them.
struct Run {
  Run(std::string_view source, std::size_t at)
      : text(source),
        begin(at),
        end(std::min(source.find_first_not_of(source[at], at), source.size())) {}

  std::size_t size() const { return end - begin; }
  bool isAtEnd() const { return end == text.size(); }
  bool follows(std::string_view bytes) const {
    return begin > 0 && bytes.contains(text[begin - 1]);
  }

  bool opensCode() const {
    if (size() > longestRun || isAtEnd() || follows("\\")) return false;
    // Two of them are there for the sake of one in the code, which may stand beside a blank.
    return !isBlank(text[end]) || (size() == 2 && text.substr(end + 1).starts_with('`'));
  }
  bool opensBold() const {
    return size() == 2 && !isAtEnd() && !isBlank(text[end]) &&
           (begin == 0 || isOuter(text[begin - 1])) &&
           !std::string_view("/)]},;:!?").contains(text[end]);
  }
  bool closesBold() const {
    return size() == 2 && begin > 0 && !isBlank(text[begin - 1]) &&
           (isAtEnd() || isOuter(text[end])) && !follows("([{\\");
  }

  std::string_view text;
  std::size_t begin;
  std::size_t end;
};

std::optional<Run> codeEnd(const Run& opener) {
  const std::string_view near = opener.text.substr(0, opener.end + longestSpan);
  for (auto at = near.find('`', opener.end); at != none; at = near.find('`', at)) {
    const Run run(opener.text, at);
    if (run.size() == opener.size()) return run;
    at = run.end;
  }
  return std::nullopt;
}

struct Mark {
  std::size_t begin;
  std::size_t end;
  bool isCode;
};

/// The marks that have partners, in their order.
std::vector<Mark> marksOf(std::string_view source, std::size_t& settled) {
  std::vector<Mark> marks;
  std::optional<Run> bold;  // the opener that has no partner yet
  const auto addPair = [&](const Run& opener, const Run& closer, bool isCode) {
    marks.push_back({opener.begin, opener.end, isCode});
    marks.push_back({closer.begin, closer.end, isCode});
  };
  const auto isNearEnd = [&](std::size_t at) {
    return source.size() - at <= longestSpan + 2 * longestRun;
  };
  settled = source.size();
  std::size_t at = 0;
  while ((at = source.find_first_of("*`", at)) != none) {
    const Run run(source, at);
    at = run.end;
    if (bold && run.begin - bold->begin > longestSpan) bold.reset();
    // What comes next may make it something else, and so what became of the marks behind it.
    const auto isUndecided = [&] { settled = std::min(settled, bold ? bold->begin : run.begin); };
    if (run.end + 1 >= source.size()) isUndecided();
    if (source[run.begin] == '`') {
      if (!run.opensCode()) continue;
      if (const auto closer = codeEnd(run)) {
        if (closer->isAtEnd()) isUndecided();
        addPair(run, *closer, true);
        at = closer->end;
      } else if (isNearEnd(run.begin)) {
        isUndecided();
      }
    } else if (bold && run.closesBold()) {
      addPair(*bold, run, false);
      bold.reset();
    } else if (run.opensBold()) {
      bold.emplace(run);
    }
  }
  if (bold && isNearEnd(bold->begin)) settled = std::min(settled, bold->begin);
  std::ranges::sort(marks, {}, &Mark::begin);
  return marks;
}

}  // namespace

InlineText withoutMarks(std::string_view source) {
  InlineText shown;
  std::size_t at = 0;
  InlineLook look;
  for (const Mark& mark : marksOf(source, shown.settled)) {
    shown.text += source.substr(at, mark.begin - at);
    at = mark.end;
    bool& flag = mark.isCode ? look.isCode : look.isBold;
    flag = !flag;
    shown.changes.push_back({shown.text.size(), look, at - shown.text.size()});
  }
  shown.text += source.substr(at);
  return shown;
}

InlineText asWritten(std::string_view source) {
  return {.text = std::string(source), .changes = {}, .settled = source.size()};
}

InlineLook InlineText::lookAt(std::size_t place) const {
  const auto after = std::ranges::upper_bound(changes, place, {}, &Change::at);
  return after == changes.begin() ? InlineLook() : std::prev(after)->look;
}

std::size_t InlineText::sourceOf(std::size_t place) const {
  const auto after = std::ranges::upper_bound(changes, place, {}, &Change::at);
  return place + (after == changes.begin() ? 0 : std::prev(after)->removed);
}

std::string InlineText::styled(Around around, std::size_t begin, std::size_t end) const {
  std::string out;
  end = std::min(end, text.size());
  auto change = std::ranges::upper_bound(changes, begin, {}, &Change::at);
  for (InlineLook look = lookAt(begin); begin < end;) {
    const std::size_t partEnd = change == changes.end() ? end : std::min(change->at, end);
    const bool isBold = look.isBold && around != Around::bold;
    const bool isDim = around == Around::dim;
    if (partEnd > begin) {
      // 22 ends bold and dim alike, 39 the colour.
      if (isBold) out += isDim ? "\x1b[22;1m" : "\x1b[1m";
      if (look.isCode) out += "\x1b[36m";
      out.append(text, begin, partEnd - begin);
      if (look.isCode) out += "\x1b[39m";
      if (isBold) out += isDim ? "\x1b[22;2m" : "\x1b[22m";
    }
    begin = partEnd;
    if (change != changes.end()) look = (change++)->look;
  }
  return out;
}

}  // namespace vantrell::shell
