// A long answer without any structure is broken up into paragraphs, sentence by sentence. Here are
// the rules, for a text as a whole and for one that grows. One thread at a time.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "presentation/block_builder.h"
#include "presentation/character_counter.h"

namespace vantrell {

namespace denseProse {
/// Texts of so many user-perceived characters are left as they are.
inline constexpr std::size_t longestPlain = 340;
/// A first sentence below this length stands alone, as the lead.
inline constexpr std::size_t leadLimit = 181;
/// Sentences are gathered up to this length.
inline constexpr std::size_t paragraphLimit = 320;
/// Whether somebody has laid a text out: it has blank lines, four lines, or Markdown at the
/// beginning of one. The text has line feeds only, and no white space at its ends.
class StructureSearch {
 public:
  /// `text` begins with what it was in the call before, of which little is read again.
  bool finds(std::string_view text);

 private:
  int lines_ = 1;
  std::size_t line_ = 0;      // the last one, without white space before it
  std::size_t searched_ = 0;  // for its end
};
/// The paragraphs of a text without structure; empty where it has fewer than two sentences.
std::vector<std::string> paragraphs(std::string_view text);
}  // namespace denseProse

/// The blocks of dense prose that grows. What a sentence still does not decide is made anew; the
/// rest is only added to.
class DenseProseBuilder {
 public:
  explicit DenseProseBuilder(BlockList& list) : list_(list) {}

  /// `text` begins with what it was in the call before, and has no white space at its ends.
  void grow(std::string_view text);

 private:
  struct End;
  std::optional<End> nextEnd(std::string_view text);
  void finishSentence(std::string_view text, std::size_t end, std::size_t next);
  void count(std::string_view text, std::size_t to);
  bool exceeds(std::size_t more) const;
  void part();
  void feed(std::string_view text, std::size_t to);
  void show(std::string_view text, std::optional<End> open);
  void showAlone(std::string_view text, std::optional<End> open);
  void showJoined(std::string_view text, std::optional<End> open);
  void addParagraph(std::string_view text);

  BlockList& list_;
  std::size_t scan_ = 0;       // where the search for the end of a sentence goes on
  std::size_t lettersAt_ = 0;  // and that for the end of a word behind it

  std::size_t sentences_ = 0;  // that have ended
  std::size_t begin_ = 0;      // of the sentence that has not
  std::size_t countedTo_ = 0;
  CharacterCounter counter_;
  /// The paragraph that it may join: its length and text.
  std::size_t gathered_ = 0;
  std::string paragraph_;
  /// It begins a paragraph whatever follows.
  bool isAlone_ = true;
  std::size_t base_ = 0;  // blocks of the paragraphs before

  /// The paragraph of a sentence that is alone, what it holds, and how to take the open end back.
  std::optional<BlockBuilder> builder_;
  std::size_t fedTo_ = 0;
  std::optional<BlockBuilder::Mark> mark_;
  std::size_t markAt_ = 0;
  bool isBeyondMark_ = false;
  /// The paragraph behind it that would begin if a word ended here.
  std::optional<BlockBuilder> next_;
  std::size_t nextAt_ = 0;
  std::size_t nextTo_ = 0;
  std::size_t nextBase_ = 0;
};

}  // namespace vantrell
