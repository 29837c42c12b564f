// Searching a hundred megabytes of transcripts, against reading them once with memmem().
#include <cstring>
#include <string>
#include <vector>

#include "platform/text/text_finder.h"
#include "ratio.h"

namespace {

constexpr std::size_t totalBytes = 100 << 20;
constexpr std::size_t entryBytes = 4 << 10;

/// Entries that never hold the text, each of English words, every `wideEvery`-th with signs and
/// letters beyond ASCII.
std::vector<std::string> transcript(std::size_t wideEvery) {
  std::string plain, wide;
  while (plain.size() < entryBytes)
    plain += "The fixture of the test looks odd, so it was read again.\n";
  while (wide.size() < entryBytes)
    wide += "✓ Größe und Maß der Prüfung — für heute, “again”, it's odd.\n";
  std::vector<std::string> entries;
  for (std::size_t i = 0; i * entryBytes < totalBytes; ++i) {
    entries.push_back(i % wideEvery == 0 ? wide : plain);
  }
  return entries;
}

auto searching(const std::vector<std::string>& entries) {
  return [&entries] {
    return vantrell::bench::timed([&] {
      vantrell::text::Finder finder("Race Condition");
      for (const auto& entry : entries) {
        if (finder.find(entry)) std::abort();
      }
    });
  };
}

auto reading(const std::vector<std::string>& entries) {
  return [&entries] {
    return vantrell::bench::timed([&] {
      for (const auto& entry : entries) {
        if (memmem(entry.data(), entry.size(), "race condition", 14)) std::abort();
      }
    });
  };
}

}  // namespace

int main() {
  using namespace vantrell::bench;
  const auto mixed = transcript(4);
  const auto found = compare(10, searching(mixed), reading(mixed));
  fmt::print("100 MiB, a quarter of the entries beyond ASCII: {} ms\n",
             std::chrono::duration_cast<std::chrono::milliseconds>(found.ours).count());
  return report({"search in 100 MiB that ignores case", "a memmem", 60}, found);
}
