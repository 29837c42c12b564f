#include "shell/terminal/terminal_pieces.h"

#include "platform/text/text.h"
#include "platform/text/utf8.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

constexpr char escape = '\x1b';

bool isPlain(char byte) {
  return byte >= ' ' && byte < '\x7f';
}

}  // namespace

bool PieceReader::next(ShownPiece& piece) {
  if (rest_.empty()) return false;
  const char* const end = rest_.data() + rest_.size();
  std::size_t length = utf8::sequenceAt(rest_.data(), end).length;
  const bool takesMarks = static_cast<unsigned char>(rest_[0]) >= ' ';
  while (takesMarks && length < rest_.size() && static_cast<unsigned char>(rest_[length]) >= 0x80) {
    const auto sequence = utf8::sequenceAt(rest_.data() + length, end);
    const auto mark = rest_.substr(length, sequence.length);
    // A mark that is shown as a sign of its own is no part of what is before it.
    if (!sequence.valid || text::columnCount(mark) != 0 || sanitized(mark) != mark) break;
    length += sequence.length;
  }
  piece.source = rest_.substr(0, length);
  rest_.remove_prefix(length);
  if (length == 1 && isPlain(piece.source[0])) {
    piece.shown = piece.source;
    piece.columns = 1;
    return true;
  }
  buffer_ = sanitized(piece.source);
  piece.shown = buffer_;
  piece.columns = text::columnCount(buffer_);
  return true;
}

std::size_t rowCount(std::string_view line, std::size_t columns) {
  std::size_t rows = 1;
  std::size_t column = 0;
  const auto put = [&](std::size_t width) {
    if (column + width > columns && column > 0) {
      ++rows;
      column = 0;
    }
    column += width;
  };
  while (!line.empty()) {
    if (line[0] == escape) {
      line.remove_prefix(std::min(line.find('m'), line.size() - 1) + 1);
      continue;
    }
    std::size_t run = 0;
    while (run < line.size() && isPlain(line[run])) ++run;
    // The last one may have marks behind it.
    for (std::size_t i = 0; i + 1 < run; ++i) put(1);
    if (run > 1) line.remove_prefix(run - 1);
    PieceReader reader(line);
    ShownPiece piece;
    reader.next(piece);
    put(piece.columns);
    line.remove_prefix(piece.source.size());
  }
  return rows;
}

}  // namespace vantrell::shell
