#include "records/values/project_context.h"

#include <fmt/format.h>
#include <span>

#include "platform/text/text.h"

namespace vantrell {

namespace {

constexpr std::size_t toldDecisions = 20;

/// "2 decisions"; nothing for none.
void addCount(std::vector<std::string>& parts, std::size_t count, std::string_view noun) {
  if (count > 0) parts.push_back(fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s"));
}

template <typename Line>
void addSection(std::vector<std::string>& sections, std::string_view heading, const auto& list,
                const Line& line) {
  if (list.empty()) return;
  std::string section(heading);
  for (const auto& each : list) section += "\n- " + line(each);
  sections.push_back(std::move(section));
}

}  // namespace

ProjectContextProfile ProjectContextProfile::blank(Date now) {
  ProjectContextProfile profile;
  profile.updatedAt = now;
  return profile;
}

std::string ProjectContextProfile::promptContext(std::size_t maxCharacters) const {
  std::vector<std::string> sections;
  const auto told = text::trimmed(instructions);
  if (!told.empty()) sections.push_back(fmt::format("PROJECT INSTRUCTIONS\n{}", told));
  addSection(sections, "PINNED PROJECT FILES", pinnedFiles,
             [](const std::string& path) { return path; });
  const std::size_t skipped = decisions.size() - std::min(decisions.size(), toldDecisions);
  addSection(sections, "PROJECT DECISIONS", std::span(decisions).subspan(skipped),
             [](const ProjectDecision& each) { return each.title + ": " + each.detail; });
  addSection(sections, "DISCOVERED PROJECT GUIDANCE", discoveredSources,
             [](const ProjectContextSource& each) { return each.path + ": " + each.summary; });
  const std::string body = text::joined(sections, "\n\n");
  return std::string(text::firstCharacters(body, maxCharacters));
}

std::optional<std::string> ProjectContextProfile::summary() const {
  std::vector<std::string> parts;
  if (!text::trimmed(instructions).empty()) parts.emplace_back("Instructions");
  addCount(parts, pinnedFiles.size(), "pinned file");
  addCount(parts, decisions.size(), "decision");
  addCount(parts, discoveredSources.size(), "guidance file");
  if (parts.empty()) return std::nullopt;
  return text::joined(parts, " · ");
}

}  // namespace vantrell
