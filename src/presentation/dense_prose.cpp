#include "presentation/dense_prose.h"

#include <algorithm>

#include "platform/text/text.h"
#include "presentation/white_space.h"

namespace vantrell {

namespace {

constexpr std::string_view sentenceEnds = ".!?";
constexpr std::size_t fewestLowerLetters = 2;

constexpr bool isUpper(char c) {
  return c >= 'A' && c <= 'Z';
}
constexpr bool isLower(char c) {
  return c >= 'a' && c <= 'z';
}
constexpr bool beginsSentence(char c) {
  return isUpper(c) || (c >= '0' && c <= '9');
}

/// "([.!?])([A-Z][a-z]{2,}\b)", replaced by "$1 $2".
std::string withSentenceBreaks(std::string_view text) {
  std::string broken;
  broken.reserve(text.size() + text.size() / 64);
  std::size_t copied = 0;
  std::size_t at = 0;
  while ((at = text.find_first_of(sentenceEnds, at)) != text.npos) {
    const std::size_t word = ++at;
    if (word >= text.size() || !isUpper(text[word])) continue;
    std::size_t end = word + 1;
    while (end < text.size() && isLower(text[end])) ++end;
    if (end - word <= fewestLowerLetters || text::continuesWord(text.substr(end))) continue;
    broken.append(text, copied, word - copied);
    broken += ' ';
    copied = word;
    at = end;
  }
  broken.append(text, copied);
  return broken;
}

/// Cut at "(?<=[.!?])\s+(?=[A-Z0-9])".
std::vector<std::string_view> sentencesOf(std::string_view text) {
  std::vector<std::string_view> sentences;
  std::size_t begin = 0;
  std::size_t at = 0;
  while ((at = text.find_first_of(sentenceEnds, at)) != text.npos) {
    const std::size_t end = ++at;
    at = white::skip(text, end, white::at);
    if (at == end || at >= text.size() || !beginsSentence(text[at])) continue;
    sentences.push_back(text::trimmed(text.substr(begin, end - begin)));
    begin = at;
  }
  sentences.push_back(text::trimmed(text.substr(begin)));
  std::erase(sentences, std::string_view());
  return sentences;
}

}  // namespace

namespace denseProse {

bool StructureSearch::finds(std::string_view text) {
  constexpr int linesOfStructure = 4;
  while (true) {
    const std::size_t end = std::min(text.find('\n', searched_), text.size());
    line_ = white::skip(text, line_, white::blankAt);
    const std::string_view line = line_ < end ? text.substr(line_, end - line_) : "";
    for (const std::string_view mark : {"#", "- ", "* ", ">", "|", "```"}) {
      if (!line.starts_with(mark)) continue;
      // A blank at the end of a line does not count.
      if (mark.back() != ' ' || !white::trimmedOfBlanks(line.substr(1)).empty()) return true;
    }
    searched_ = end;
    if (end == text.size()) return false;
    if (++lines_ == linesOfStructure || text.substr(end).starts_with("\n\n")) return true;
    line_ = searched_ = end + 1;
  }
}

std::vector<std::string> paragraphs(std::string_view text) {
  const std::string broken = withSentenceBreaks(text);
  const auto sentences = sentencesOf(broken);
  std::vector<std::string> paragraphs;
  if (sentences.size() < 2) return paragraphs;
  std::string current(sentences.front());
  std::size_t length = text::characterCount(current);
  for (std::size_t i = 1; i < sentences.size(); ++i) {
    const std::size_t more = text::characterCount(sentences[i]);
    const bool isLead = i == 1 && length < leadLimit;
    if (isLead || length + more > paragraphLimit) {
      paragraphs.push_back(std::exchange(current, std::string(sentences[i])));
      length = more;
    } else {
      current += ' ';
      current += sentences[i];
      length += 1 + more;
    }
  }
  paragraphs.push_back(std::move(current));
  return paragraphs;
}

}  // namespace denseProse

/// Where a sentence ends and the next begins. When `isOpen`, the text ends within the word behind:
/// what follows decides, and `isCut` says what holds if nothing does.
struct DenseProseBuilder::End {
  std::size_t end;
  std::size_t next;
  bool isOpen;
  bool isCut;
};

std::optional<DenseProseBuilder::End> DenseProseBuilder::nextEnd(std::string_view text) {
  while ((scan_ = std::min(text.find_first_of(sentenceEnds, scan_), text.size())) < text.size()) {
    const std::size_t end = scan_ + 1;
    if (end == text.size()) return std::nullopt;
    const std::size_t next = white::skip(text, end, white::at);
    if (next > end) {
      scan_ = next;
      if (beginsSentence(text[next])) return End{end, next, false, true};
      continue;
    }
    if (isUpper(text[end])) {
      lettersAt_ = std::max(lettersAt_, end + 1);
      while (lettersAt_ < text.size() && isLower(text[lettersAt_])) ++lettersAt_;
      const bool isWord = lettersAt_ - end > fewestLowerLetters;
      if (lettersAt_ == text.size()) return End{end, end, true, isWord};
      if (isWord && !text::continuesWord(text.substr(lettersAt_))) {
        scan_ = end;
        return End{end, end, false, true};
      }
    }
    scan_ = end;
  }
  return std::nullopt;
}

void DenseProseBuilder::grow(std::string_view text) {
  std::optional<End> end;
  while ((end = nextEnd(text)) && !end->isOpen) finishSentence(text, end->end, end->next);
  show(text, end);
}

void DenseProseBuilder::count(std::string_view text, std::size_t to) {
  if (to <= countedTo_) return;
  counter_.add(text.substr(countedTo_, to - countedTo_));
  countedTo_ = to;
}

bool DenseProseBuilder::exceeds(std::size_t more) const {
  return gathered_ + more > denseProse::paragraphLimit;
}

/// The sentence does not join the paragraph before it.
void DenseProseBuilder::part() {
  list_.truncate(base_);
  addParagraph(paragraph_);
  base_ = list_.blocks.size();
  isAlone_ = true;
}

void DenseProseBuilder::addParagraph(std::string_view text) {
  BlockBuilder(list_).append(text);
}

/// Brings the paragraph of a lone sentence to this state.
void DenseProseBuilder::feed(std::string_view text, std::size_t to) {
  if (next_) {
    next_.reset();
    list_.truncate(nextBase_);
  }
  if (!builder_) {
    list_.truncate(base_);
    builder_.emplace(list_);
    fedTo_ = begin_;
    isBeyondMark_ = false;
  }
  if (isBeyondMark_) {
    builder_->rewind(*mark_);
    fedTo_ = markAt_;
    isBeyondMark_ = false;
  }
  builder_->append(text.substr(fedTo_, to - fedTo_));
  fedTo_ = to;
}

void DenseProseBuilder::finishSentence(std::string_view text, std::size_t end, std::size_t next) {
  count(text, end);
  const std::size_t length = counter_.count();
  if (!isAlone_ && exceeds(length)) part();
  const std::string_view sentence = text.substr(begin_, end - begin_);
  if (isAlone_) {
    feed(text, end);
    gathered_ = length;
    paragraph_ = length <= denseProse::paragraphLimit ? sentence : std::string_view();
  } else {
    gathered_ += 1 + length;
    paragraph_ += ' ';
    paragraph_ += sentence;
  }
  ++sentences_;
  const bool isLead = sentences_ == 1 && gathered_ < denseProse::leadLimit;
  if (isLead || exceeds(1)) {
    if (!isAlone_) {
      part();
    } else {
      base_ = list_.blocks.size();
    }
    isAlone_ = true;
  } else {
    isAlone_ = false;
  }
  builder_.reset();
  begin_ = countedTo_ = next;
  counter_ = {};
}

void DenseProseBuilder::show(std::string_view text, std::optional<End> open) {
  count(text, open ? open->end : text.size());
  if (!isAlone_ && exceeds(counter_.count())) part();
  if (isAlone_) {
    showAlone(text, open);
  } else {
    showJoined(text, open);
  }
}

void DenseProseBuilder::showAlone(std::string_view text, std::optional<End> open) {
  if (!open) return feed(text, text.size());
  if (next_ && nextAt_ == open->end && open->isCut) {
    next_->append(text.substr(nextTo_));
    nextTo_ = text.size();
    return;
  }
  feed(text, open->end);
  mark_ = builder_->mark();
  markAt_ = open->end;
  const std::string_view rest = text.substr(open->end);
  const std::size_t length = counter_.count();
  const bool parts = (sentences_ == 0 && length < denseProse::leadLimit) ||
                     length + rest.size() > denseProse::paragraphLimit;
  if (open->isCut && parts) {
    nextAt_ = open->end;
    nextTo_ = text.size();
    nextBase_ = list_.blocks.size();
    next_.emplace(list_);
    next_->append(rest);
    return;
  }
  isBeyondMark_ = true;
  if (open->isCut) builder_->append(" ");
  builder_->append(rest);
}

/// All of it is short: nothing is longer than a paragraph may be.
void DenseProseBuilder::showJoined(std::string_view text, std::optional<End> open) {
  list_.truncate(base_);
  const std::size_t definite = open ? open->end : text.size();
  const std::string_view sentence = text.substr(begin_, definite - begin_);
  const std::string_view rest = text.substr(definite);  // ASCII letters only
  const std::size_t length = counter_.count();
  const auto with = [](std::string_view before, std::string_view between, std::string_view after) {
    return std::string(before).append(between).append(after);
  };
  if (open && open->isCut) {
    const std::string ended = with(paragraph_, " ", sentence);
    if (exceeds(1 + length + rest.size())) {
      addParagraph(ended);
      return addParagraph(rest);
    }
    return addParagraph(with(ended, " ", rest));
  }
  const std::string whole = with(sentence, "", rest);
  if (exceeds(length + rest.size())) {
    addParagraph(paragraph_);
    return addParagraph(whole);
  }
  addParagraph(with(paragraph_, " ", whole));
}

}  // namespace vantrell
