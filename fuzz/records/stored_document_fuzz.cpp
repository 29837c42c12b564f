// What the store reads: the whole document, and the rows of workspaces, tasks, runs and entries.
// The first byte chooses. Whatever decodes must be the same after it was written and read again.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "records/stores/conversation_json.h"

using namespace vantrell;

namespace {

template <typename Decode, typename Encode>
void expectStable(std::string_view text, Decode decode, Encode encode) {
  const auto first = decode(text);
  if (!first) {
    if (first.error().text().empty()) std::abort();  // every refusal says why
    return;
  }
  const std::string written = encode(*first);
  const auto second = decode(written);
  // Compared as text: what cannot be equal to itself has no place in a record.
  if (!second || encode(*second) != written) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
  switch (data[0] % 5) {
    case 0:
      expectStable(
          text, [](auto each) { return decodeWorkspaces(each, conversationJson); },
          [](const auto& each) { return encodeWorkspaces(each, conversationJson); });
      break;
    case 1:
      expectStable(text, decodeWorkspaceHead,
                   [](const Workspace& each) { return encodeHead(each); });
      break;
    case 2:
      expectStable(text, decodeThreadHead, [](const ChatThread& each) { return encodeHead(each); });
      break;
    case 3:
      expectStable(text, decodeRun, [](const RunRecord& each) { return encodeRow(each); });
      break;
    default: expectStable(text, decodeEntry, [](const ChatEntry& each) { return encodeRow(each); });
  }
  return 0;
}
