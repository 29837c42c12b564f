#include "shell/terminal/inline_marks.h"

#include <algorithm>
#include <array>
#include <optional>

#include "shell/terminal/terminal_pieces.h"

namespace vantrell::shell {

namespace {

constexpr char star = '*';
constexpr char tick = '`';
constexpr std::size_t none = std::string_view::npos;
/// Longer runs are fences and rules that have come into a text.
constexpr std::size_t longestRun = 2;

bool isBlank(char byte) {
  return byte == ' ' || byte == '\t' || byte == '\n';
}

bool isWordByte(char byte) {
  return (byte >= '0' && byte <= '9') || (byte >= 'a' && byte <= 'z') ||
         (byte >= 'A' && byte <= 'Z');
}

/// Characters of one kind, without others of it beside them.
class Run {
 public:
  Run(std::string_view text, std::size_t begin)
      : text_(text),
        begin_(begin),
        end_(std::min(text.find_first_not_of(text[begin], begin), text.size())) {}

  std::size_t begin() const { return begin_; }
  std::size_t end() const { return end_; }
  std::size_t size() const { return end_ - begin_; }

  bool opensCode() const {
    if (size() > longestRun || end_ == text_.size() || isAfter("\\")) return false;
    // Two of them are there for the sake of one in the code, which may stand beside a blank.
    return !isBlank(text_[end_]) || (size() == 2 && text_.substr(end_ + 1).starts_with(tick));
  }
  bool opensBold() const {
    if (size() != 2 || end_ == text_.size() || isBlank(text_[end_]) || isMarked()) return false;
    const bool isOutside = begin_ == 0 || isOuter(text_[begin_ - 1]);
    return isOutside && !std::string_view("/)]},;:!?").contains(text_[end_]);
  }
  bool closesBold() const {
    if (size() != 2 || begin_ == 0 || isBlank(text_[begin_ - 1]) || isMarked()) return false;
    return (end_ == text_.size() || isOuter(text_[end_])) && !isAfter("([{\\");
  }
  /// A combining character makes the last one another character.
  bool isMarked() const {
    if (end_ == text_.size() || static_cast<unsigned char>(text_[end_]) < 0x80) return false;
    ShownPiece piece;
    PieceReader(text_.substr(end_ - 1)).next(piece);
    return piece.source.size() > 1;
  }

 private:
  bool isAfter(std::string_view bytes) const {
    return begin_ > 0 && bytes.contains(text_[begin_ - 1]);
  }
  /// Within words (2**8) and paths (src/**/x) stars mean something else.
  static bool isOuter(char byte) {
    return !isWordByte(byte) && !std::string_view("/\\_").contains(byte);
  }

  std::string_view text_;
  std::size_t begin_;
  std::size_t end_;
};

/// Finds the ends of code. What was passed over once is not read again.
class CodeEnds {
 public:
  explicit CodeEnds(std::string_view text) : text_(text) {}

  std::optional<Run> of(const Run& opener) {
    std::size_t& next = next_[opener.size() - 1];
    if (next == none || next < opener.end()) next = find(opener.size(), opener.end());
    if (next - opener.begin() > InlineMarks::longestSpan) return std::nullopt;
    return Run(text_, next);
  }

 private:
  /// The text's end where there is none; it is beyond all openers.
  std::size_t find(std::size_t size, std::size_t from) const {
    for (auto at = text_.find(tick, from); at != none; at = text_.find(tick, at)) {
      const Run run(text_, at);
      if (run.size() == size && !run.isMarked()) return at;
      at = run.end();
    }
    return none - 1;
  }

  std::string_view text_;
  std::array<std::size_t, longestRun> next_{none, none};
};

}  // namespace

InlineMarks::InlineMarks(std::string_view text, std::size_t from) {
  CodeEnds codeEnds(text);
  std::optional<std::size_t> bold;  // the opener that has no partner yet
  const auto addPair = [&](const Run& opener, const Run& closer, InlineLook look) {
    marks_.push_back({opener.begin(), opener.end(), look});
    marks_.push_back({closer.begin(), closer.end(), look});
  };
  constexpr std::string_view markBytes = "*`";
  std::size_t at = from;
  // Of a run that lies across a reading point nothing opens.
  if (at > 0 && at < text.size() && text[at] == text[at - 1] && markBytes.contains(text[at])) {
    at = Run(text, at).end();
  }
  while ((at = text.find_first_of(markBytes, at)) != none) {
    const Run run(text, at);
    at = run.end();
    if (text[run.begin()] == tick) {
      if (!run.opensCode() || run.isMarked()) continue;
      const auto closer = codeEnds.of(run);
      // What is bold around it must not be cut in two by a reading point.
      const std::size_t around = bold ? openers_[*bold].begin : run.begin();
      openers_.push_back({.begin = run.begin(),
                          .end = closer ? closer->end() : none,
                          .from = run.begin() - around <= longestSpan ? around : run.begin()});
      if (!closer) continue;
      addPair(run, *closer, {.isCode = true});
      at = closer->end();
      continue;
    }
    if (bold && run.closesBold() && run.begin() - openers_[*bold].begin <= longestSpan) {
      addPair(Run(text, openers_[*bold].begin), run, {.isBold = true});
      openers_[*bold].end = run.end();
      bold.reset();
    } else if (run.opensBold()) {
      // The one before it gets a partner only if this one turns out to be code.
      bold = openers_.size();
      openers_.push_back({run.begin(), none, run.begin()});
    }
  }
  std::ranges::sort(marks_, {}, &InlineMark::begin);
  InlineLook look;
  for (auto& mark : marks_) {
    look.isBold = look.isBold != mark.after.isBold;
    look.isCode = look.isCode != mark.after.isCode;
    mark.after = look;
  }
}

std::size_t InlineMarks::readingPoint(std::size_t offset) {
  for (; firstOpener_ < openers_.size(); ++firstOpener_) {
    const auto& [begin, end, from] = openers_[firstOpener_];
    if (begin >= offset) break;
    if (end == none ? offset - begin <= longestSpan : end > offset) return from;
  }
  return offset;
}

std::string InlineText::styled(Around around) const {
  std::string out;
  std::size_t at = 0;
  InlineLook look;
  const auto add = [&](std::size_t end) {
    end = std::min(end, text.size());
    if (end <= at) return;
    const auto part = std::string_view(text).substr(at, end - at);
    at = end;
    const bool isBold = look.isBold && around != Around::bold;
    const bool isDim = around == Around::dim;
    // 22 ends bold and dim alike, 39 the colour.
    if (isBold) out += isDim ? "\x1b[22;1m" : "\x1b[1m";
    if (look.isCode) out += "\x1b[36m";
    out += part;
    if (look.isCode) out += "\x1b[39m";
    if (isBold) out += isDim ? "\x1b[22;2m" : "\x1b[22m";
  };
  for (const auto& change : changes) {
    add(change.at);
    look = change.look;
  }
  add(text.size());
  return out;
}

InlineText withoutMarks(std::string_view line) {
  InlineText shown;
  std::size_t at = 0;
  const InlineMarks marks(line);
  for (const auto& mark : marks.marks()) {
    shown.text += line.substr(at, mark.begin - at);
    shown.changes.push_back({shown.text.size(), mark.after});
    at = mark.end;
  }
  shown.text += line.substr(at);
  return shown;
}

}  // namespace vantrell::shell
