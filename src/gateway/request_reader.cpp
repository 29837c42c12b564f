#include "gateway/request_reader.h"

#include <algorithm>
#include <charconv>

#include "platform/text/text.h"

namespace vantrell {

namespace {

constexpr std::string_view lineEnd = "\r\n";
constexpr std::string_view headEnd = "\r\n\r\n";

char lowered(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}
char raised(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c;
}

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

/// Takes the text up to the separator, or all of it, off the front.
std::string_view cutAt(std::string_view& text, std::string_view separator) {
  const auto at = std::min(text.find(separator), text.size());
  const auto piece = text.substr(0, at);
  text.remove_prefix(std::min(at + separator.size(), text.size()));
  return piece;
}

/// nullopt unless it is a number from 0 to the longest body.
std::optional<std::size_t> contentLength(std::string_view text) {
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) return std::nullopt;
  }
  std::int64_t value = -1;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  if (value < 0 || value > static_cast<std::int64_t>(RequestReader::longestBody)) {
    return std::nullopt;
  }
  return static_cast<std::size_t>(value);
}

bool readRequestLine(std::string_view line, GatewayRequest& request) {
  std::vector<std::string_view> pieces;
  while (!line.empty()) {
    if (const auto piece = cutAt(line, " "); !piece.empty()) pieces.push_back(piece);
  }
  if (pieces.size() != 3 || !pieces[2].starts_with("HTTP/1.")) return false;
  std::ranges::transform(pieces[0], std::back_inserter(request.method), raised);
  request.path = cutAt(pieces[1], "?");
  return true;
}

/// Takes the next line of a head off its front: the name in lower case and the trimmed value;
/// nullopt where it is not a header.
std::optional<std::pair<std::string, std::string_view>> cutHeader(std::string_view& lines) {
  std::string_view value = cutAt(lines, lineEnd);
  if (!value.contains(':')) return std::nullopt;
  std::string name(cutAt(value, ":"));
  if (name.empty() || value.empty()) return std::nullopt;
  std::ranges::transform(name, name.begin(), lowered);
  return std::pair(std::move(name), trimmed(value));
}

/// How much follows the head, which may still prove to be invalid; nullopt where no answer but a
/// refusal is possible.
std::optional<std::size_t> bodyLengthIn(std::string_view head) {
  if (!text::isValidUtf8(head)) return std::nullopt;
  std::ignore = cutAt(head, lineEnd);
  std::size_t length = 0;
  while (!head.empty()) {
    const auto header = cutHeader(head);
    if (!header || header->first != "content-length") continue;
    const auto given = contentLength(header->second);
    if (!given) return std::nullopt;
    length = *given;
  }
  return length;
}

bool readHead(std::string_view head, GatewayRequest& request) {
  if (!readRequestLine(cutAt(head, lineEnd), request)) return false;
  while (!head.empty()) {
    const auto header = cutHeader(head);
    if (!header) return false;
    request.headers.add(header->first, header->second);
  }
  return true;
}

}  // namespace

RequestReader::State RequestReader::append(std::string_view bytes) {
  buffer_ += bytes;
  if (buffer_.size() > longestMessage) return State::tooLarge;
  if (!body_) {
    const auto end = buffer_.find(headEnd, searched_);
    if (end == std::string::npos) {
      searched_ = buffer_.size() - std::min(buffer_.size(), headEnd.size() - 1);
      return State::incomplete;
    }
    const auto length = bodyLengthIn(std::string_view(buffer_).substr(0, end));
    if (!length) return State::invalid;
    body_ = end + headEnd.size();
    bodySize_ = *length;
  }
  if (buffer_.size() - *body_ < bodySize_) return State::incomplete;
  const auto head = std::string_view(buffer_).substr(0, *body_ - headEnd.size());
  return readHead(head, request_) ? State::complete : State::invalid;
}

GatewayRequest RequestReader::take() {
  request_.body = buffer_.substr(*body_, bodySize_);
  buffer_ = {};
  return std::exchange(request_, {});
}

}  // namespace vantrell
