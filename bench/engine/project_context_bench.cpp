// What the block costs that every agent is told about a project, where 200 guidance files lie in
// it: against reading the same files and nothing else.
#include <filesystem>
#include <fstream>

#include "bench_folder.h"
#include "engine/projects/project_context_service.h"
#include "platform/files/files.h"
#include "project/context_discovery.h"
#include "ratio.h"

using namespace vantrell;

int main() {
  const bench::Folder folder;
  const std::string rules = folder.path() + "/.cursor/rules";
  std::filesystem::create_directories(rules);
  constexpr int guidanceFiles = 200;
  for (int i = 0; i < guidanceFiles; ++i) {
    std::ofstream file(fmt::format("{}/rule{}.md", rules, i));
    for (int line = 0; line < 80; ++line) {
      file << fmt::format("- Rule {} of file {}: keep the façade as it is.\n", line, i);
    }
  }
  std::size_t told = 0, read = 0;
  const auto found = bench::compare(
      101,
      [&] {
        return bench::processorTimed([&] {
          ProjectContextProfile profile;
          profile.discoveredSources = discoverContextSources(folder.path());
          if (profile.discoveredSources.size() != guidanceFiles) std::abort();
          told += ProjectContextService::block(profile).size();
        });
      },
      [&] {
        return bench::processorTimed([&] {
          for (const auto& entry : std::filesystem::directory_iterator(rules)) {
            read += files::read(entry.path().native()).value().size();
          }
        });
      });
  if (told == 0 || read == 0) std::abort();
  fmt::print("{:.2f} ms for the block of {} files\n",
             std::chrono::duration<double, std::milli>(found.ours).count(), guidanceFiles);
  return bench::report({"the block of 200 guidance files", "reading them", 4}, found);
}
