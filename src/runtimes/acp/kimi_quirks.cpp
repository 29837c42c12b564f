#include "runtimes/acp/kimi_quirks.h"

#include <filesystem>
#include <fmt/format.h>
#include <fstream>

#include "platform/text/text.h"

namespace vantrell {

namespace {

/// How much of a turn's log is read: the end decides.
constexpr std::uint64_t longestLog = 1 << 20;

std::string sessionsFolder(const Environment& environment) {
  const auto own = environment.find("KIMI_CODE_HOME");
  if (own != environment.end() && !own->second.empty()) return own->second + "/sessions";
  const auto home = environment.find("HOME");
  return home == environment.end() ? std::string() : home->second + "/.kimi-code/sessions";
}

/// The sessions lie in a folder for each project, whose name is Kimi's affair.
std::string findLog(const std::string& sessions, const std::string& sessionID) {
  if (sessions.empty() || sessionID.empty() || sessionID.contains('/')) return {};
  std::error_code unreadable;
  for (const auto& project : std::filesystem::directory_iterator(sessions, unreadable)) {
    const auto path = project.path() / sessionID / "logs/kimi-code.log";
    if (std::filesystem::is_regular_file(path, unreadable)) return path.string();
  }
  return {};
}

}  // namespace

KimiQuirks::KimiQuirks(const Environment& environment)
    : sessionsFolder_(sessionsFolder(environment)) {}

std::vector<std::string_view> KimiQuirks::modeValues(GrokPermissionMode mode) const {
  switch (mode) {
    case GrokPermissionMode::ask: return {"manual", "default"};
    case GrokPermissionMode::auto_: return {"auto"};
    case GrokPermissionMode::fullAccess: return {"yolo"};
  }
  return {};
}

void KimiQuirks::turnBegins(const std::string& sessionID) {
  sessionID_ = sessionID;
  logPath_ = findLog(sessionsFolder_, sessionID);
  std::error_code none;
  const auto size = logPath_.empty() ? 0 : std::filesystem::file_size(logPath_, none);
  logStart_ = none ? 0 : size;
  log_.reset();
}

std::string KimiQuirks::readLog(std::uint64_t from) const {
  // The first turn of a session makes the log.
  const std::string path = logPath_.empty() ? findLog(sessionsFolder_, sessionID_) : logPath_;
  std::error_code none;
  const auto size = path.empty() ? 0 : std::filesystem::file_size(path, none);
  if (none || size <= from) return {};
  const std::uint64_t start = std::max(from, size > longestLog ? size - longestLog : 0);
  std::string content(size - start, '\0');
  std::ifstream file(path, std::ios::binary);
  file.seekg(static_cast<std::streamoff>(start));
  file.read(content.data(), static_cast<std::streamsize>(content.size()));
  content.resize(static_cast<std::size_t>(std::max<std::streamsize>(file.gcount(), 0)));
  return content;
}

std::optional<std::string> KimiQuirks::failureIn(std::string_view log) {
  std::optional<std::string> failure;
  for (const auto line : text::lines(log)) {
    if (line.contains("llm request failed")) {
      constexpr std::string_view key = "errorMessage=\"";
      const auto at = line.find(key);
      const auto words = at == std::string_view::npos ? line : line.substr(at + key.size());
      failure = std::string(words.substr(0, words.rfind("\" statusCode=")));
      if (failure->ends_with('"')) failure->pop_back();
    } else if (line.contains("llm request")) {
      failure.reset();  // another try
    }
  }
  return failure;
}

bool KimiQuirks::hasEnded(std::string_view log) {
  bool hasEnded = false;
  for (const auto line : text::lines(log)) {
    if (line.contains("llm request failed") || line.contains("llm response")) {
      hasEnded = true;
    } else if (line.contains("llm request")) {
      hasEnded = false;
    }
  }
  return hasEnded;
}

bool KimiQuirks::isSettled(bool hasWorked) {
  std::string log = readLog(logStart_);
  const bool isUnchanged = log_ == log;
  log_ = std::move(log);
  // A log that says nothing of requests is one that is not kept, or kept elsewhere: then the answer
  // counts.
  return isUnchanged && (hasEnded(*log_) || (hasWorked && log_->empty()));
}

std::optional<AgentError> KimiQuirks::hiddenFailure(const JsonObject& result,
                                                    bool hasWorked) const {
  if (json::textOr(result, "stopReason", "end_turn") != "end_turn") return std::nullopt;
  if (const auto failure = failureIn(log_.value_or(std::string()))) {
    return AgentError(fmt::format("The model of Kimi failed: {}", *failure));
  }
  if (hasWorked) return std::nullopt;
  return AgentError("Kimi ended its turn without a word.");
}

}  // namespace vantrell
