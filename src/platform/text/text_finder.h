// Finds a text within long ones, case ignored by the Unicode rules unless it matters. Made once for
// what is sought, then used for any number of texts: plain ASCII is searched at the speed of
// memory, other text is folded by ICU first. A finder is used by one thread at a time.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace vantrell::text {

class Finder {
 public:
  enum class Case { ignored, matters };
  /// What differs in case or in the way in which an accent is written counts as the same, unless
  /// the case matters: then bytes are compared.
  explicit Finder(std::string_view sought, Case letterCase = Case::ignored);

  /// Bytes of the text that was searched.
  struct Hit {
    std::size_t offset;
    std::size_t length;
  };
  /// The first hit. An empty text is found nowhere. In text that is not valid UTF-8, case is
  /// ignored for the letters of ASCII only.
  std::optional<Hit> find(std::string_view text);

 private:
  std::optional<std::size_t> findSought(std::string_view where) const;
  std::optional<Hit> findFolded(std::string_view text);

  std::string sought_;  // folded, when case is ignored
  Case case_;
  std::string lowered_;  // kept for its memory
};

}  // namespace vantrell::text
