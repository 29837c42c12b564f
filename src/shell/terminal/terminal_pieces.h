// A text of an agent piece by piece, as a terminal shows it: what each character looks like once it
// is harmless, and how many columns it takes. Pure, any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vantrell::shell {

/// A character with the marks that combine with it.
struct ShownPiece {
  std::string_view source;
  /// Sanitized; valid until the next piece is read. A tab and a line feed stay what they are.
  std::string_view shown;
  std::size_t columns = 0;
};

class PieceReader {
 public:
  explicit PieceReader(std::string_view text) : rest_(text) {}
  /// False at the end of the text.
  bool next(ShownPiece& piece);

 private:
  std::string_view rest_;
  std::string buffer_;
};

/// The rows that a terminal of so many columns gives one line, which may hold colours but no other
/// control characters. An empty line takes one row.
std::size_t rowCount(std::string_view line, std::size_t columns);

}  // namespace vantrell::shell
