// A stream cut into chunks at random must give the same lines as the stream in one piece, and those
// must be what a plain split gives. The first bytes of an input choose the cuts.
#include <cstdint>
#include <cstdlib>

#include "runtimes/wire/line_buffer.h"

namespace {

using Lines = std::vector<std::string>;

Lines split(std::string_view stream) {
  Lines lines;
  for (auto end = stream.find('\n'); end != std::string_view::npos; end = stream.find('\n')) {
    if (end > 0) lines.emplace_back(stream.substr(0, end));
    stream.remove_prefix(end + 1);
  }
  return lines;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::string_view cuts = input.substr(0, std::min<std::size_t>(8, size));
  const std::string_view stream = input.substr(cuts.size());

  Lines lines;
  vantrell::LineBuffer buffer;
  const auto keep = [&lines](std::string_view line) { lines.emplace_back(line); };
  std::string_view rest = stream;
  for (std::size_t i = 0; !rest.empty(); ++i) {
    // A zero is an empty chunk and then one of 256 bytes.
    const std::size_t length = static_cast<unsigned char>(cuts[i % cuts.size()]);
    buffer.consume(rest.substr(0, length), keep);
    if (length == 0) buffer.consume(rest.substr(0, 256), keep);
    rest.remove_prefix(std::min<std::size_t>(rest.size(), length == 0 ? 256 : length));
  }
  if (lines != split(stream)) std::abort();
  const auto lastEnd = stream.rfind('\n');
  const std::size_t unfinished =
      lastEnd == std::string_view::npos ? stream.size() : stream.size() - lastEnd - 1;
  if (buffer.pendingBytes() != unfinished) std::abort();
  return 0;
}
