#include "project/context_discovery.h"

#include <filesystem>
#include <sys/stat.h>

#include "platform/files/files.h"
#include "platform/text/text.h"

namespace vantrell {

namespace {

constexpr std::size_t largestFile = 1'000'000;  // bytes
constexpr std::size_t summaryLength = 1'600;    // user-perceived characters

constexpr const char* namedFiles[] = {"AGENTS.md", "CLAUDE.md", "README.md", ".cursorrules",
                                      ".github/copilot-instructions.md"};
constexpr std::string_view rulesFolder = ".cursor/rules";
constexpr std::string_view extensionsOfRules[] = {".md", ".mdc", ".txt"};

std::optional<Date> modificationDate(const std::string& path) {
  struct stat info{};
  if (stat(path.c_str(), &info) != 0) return std::nullopt;
  return Date::sinceUnixEpoch(static_cast<double>(info.st_mtim.tv_sec) +
                              static_cast<double>(info.st_mtim.tv_nsec) / 1e9);
}

std::optional<ProjectContextSource> sourceAt(const std::string& root, const std::string& relative) {
  const std::string path = root + "/" + relative;
  auto content = files::read(path, largestFile);
  if (!content || !text::isValidUtf8(*content)) return std::nullopt;
  std::erase(*content, '\0');
  const auto trimmed = text::trimmed(*content);
  if (trimmed.empty()) return std::nullopt;
  ProjectContextSource source;
  source.path = text::repaired(relative);  // a name may be any bytes
  source.title = text::repaired(std::filesystem::path(relative).stem().native());
  source.summary = text::firstCharacters(trimmed, summaryLength);
  source.modifiedAt = modificationDate(path);
  return source;
}

std::vector<std::string> candidates(const std::string& root) {
  std::vector<std::string> paths(std::begin(namedFiles), std::end(namedFiles));
  std::error_code code;
  std::filesystem::directory_iterator rules(std::filesystem::path(root) / rulesFolder, code);
  while (!code && rules != std::filesystem::directory_iterator()) {
    const auto name = rules->path().filename();
    const std::string extension = text::lowercased(name.extension().native());
    if (std::ranges::find(extensionsOfRules, extension) != std::end(extensionsOfRules)) {
      paths.push_back((std::filesystem::path(rulesFolder) / name).native());
    }
    rules.increment(code);
  }
  return paths;
}

}  // namespace

std::vector<ProjectContextSource> discoverContextSources(const std::string& root) {
  std::vector<ProjectContextSource> sources;
  for (const auto& relative : candidates(root)) {
    if (auto source = sourceAt(root, relative)) sources.push_back(*std::move(source));
  }
  return sources;
}

}  // namespace vantrell
