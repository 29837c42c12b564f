// Text as users see it. All text of the program is UTF-8; "character" here means a user-perceived
// one (a grapheme cluster), never a byte. Pure functions, any thread. Input that is not valid UTF-8
// is treated as if repaired() had been called on it.
#pragma once

#include <concepts>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vantrell::text {

/// Without the white space and line breaks (Unicode's, and the control characters among them) at
/// both ends.
std::string_view trimmed(std::string_view text);
/// The first `count` user-perceived characters, or all of them when there are fewer.
std::string_view firstCharacters(std::string_view text, std::size_t count);
/// The last `count` user-perceived characters, or all of them when there are fewer.
std::string_view lastCharacters(std::string_view text, std::size_t count);
/// Number of user-perceived characters.
std::size_t characterCount(std::string_view text);
/// The columns that a terminal gives a text without control characters: none for combining marks,
/// two for wide characters (Unicode's East Asian Width W and F) and those that are shown as emoji.
std::size_t columnCount(std::string_view text);
/// As much as fits into `columns`, which then says how many of them it fills.
std::string_view firstColumns(std::string_view text, std::size_t& columns);
/// Lower-cased by the Unicode rules, independent of the locale.
std::string lowercased(std::string_view text);
/// Splits at every member of the newline set (LF, VT, FF, CR, NEL, U+2028, U+2029), each of which
/// ends a line by itself: "a\r\nb" gives "a", "", "b". Text without one is one line.
std::vector<std::string_view> lines(std::string_view text);
/// The views would outlive a temporary text.
template <typename Text>
  requires std::same_as<Text, std::string>
void lines(Text&& text) = delete;
/// The first `most` words: the longest stretches of letters, marks and numbers (Unicode's general
/// categories L, M and N) of any script. All else only separates them.
std::vector<std::string_view> words(std::string_view text, std::size_t most);
template <typename Text>
  requires std::same_as<Text, std::string>
void words(Text&& text, std::size_t most) = delete;
/// Whether `needle` occurs in `haystack` when case and the locale's conventions are ignored.
/// An empty needle occurs everywhere.
bool containsIgnoringCase(std::string_view haystack, std::string_view needle);
/// Orders as a person expects in the present locale: negative, 0 or positive.
int localizedCompare(std::string_view left, std::string_view right);

/// Whether a word that ends before `rest` would go on in it: where "\b" of Pattern finds no end.
bool continuesWord(std::string_view rest);

bool isValidUtf8(std::string_view bytes);
/// Replaces each invalid sequence by U+FFFD, as the WHATWG decoder does.
std::string repaired(std::string_view bytes);

/// Text without the separator is one part, also when it is empty.
std::vector<std::string_view> split(std::string_view text, char separator);
template <typename Text>
  requires std::same_as<Text, std::string>
void split(Text&& text, char separator) = delete;
std::string joined(const std::vector<std::string>& parts, std::string_view separator);

/// A compiled regular expression (ICU syntax). Matching has a limit of half a second of processor
/// time inside, so that a hostile input makes a match fail and never hangs. Calls from several
/// threads at once are safe.
class Pattern {
 public:
  /// nullopt when the expression does not compile.
  static std::optional<Pattern> compile(std::string_view expression, bool ignoreCase = false);
  ~Pattern();
  Pattern(Pattern&&) noexcept;
  Pattern& operator=(Pattern&&) noexcept;

  struct Match {
    std::size_t offset;  // bytes
    std::size_t length;  // bytes
    /// Group 0 is the whole match; a group that took no part is empty and has no value.
    std::vector<std::optional<std::string>> groups;
  };
  /// All matches that do not overlap, from the left; fewer when the time ran out.
  std::vector<Match> findAll(std::string_view text) const;

 private:
  struct Impl;
  explicit Pattern(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

}  // namespace vantrell::text
