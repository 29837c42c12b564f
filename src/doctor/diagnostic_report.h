// What the connection doctor found, for those that show it. Plain values.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/values/date.h"
#include "platform/values/json.h"
#include "records/values/raw_text.h"

namespace vantrell {

enum class DiagnosticStatus { running, passed, warning, failed };
constexpr auto rawTexts(DiagnosticStatus) {
  return std::to_array<std::string_view>({"running", "passed", "warning", "failed"});
}

/// How much it matters.
enum class DiagnosticSeverity { info, warning, error };
constexpr auto rawTexts(DiagnosticSeverity) {
  return std::to_array<std::string_view>({"info", "warning", "error"});
}

struct DiagnosticCheck {
  std::string id;  // stable: "workspace", "fleet-NAME"
  std::string title;
  std::string detail;  // what was found
  DiagnosticStatus status = DiagnosticStatus::running;
  DiagnosticSeverity severity = DiagnosticSeverity::info;
  std::optional<std::string> remediation;  // what the user can do

  bool operator==(const DiagnosticCheck&) const = default;
};

struct DiagnosticReport {
  Date generatedAt;  // while it runs, the time of the start
  std::vector<DiagnosticCheck> checks;
  bool isRunning = false;

  /// Whether no check failed. Warnings do not count.
  bool isHealthy() const;
  /// Of the checks that did not pass, warnings among them.
  std::size_t issueCount() const;
};

JsonObject asJson(const DiagnosticReport& report);

}  // namespace vantrell
