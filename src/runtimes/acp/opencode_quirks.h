// OpenCode, which runs the models of the GLM plan.
#pragma once

#include "runtimes/acp/acp_quirks.h"

namespace vantrell {

class OpenCodeQuirks final : public ACPQuirks {
 public:
  bool hasConfigOptions() const override { return true; }
  /// Another model of OpenCode may be billed per use.
  bool isModelGuarded() const override { return true; }
  /// It has no full-access mode of its own, so its questions are answered here.
  const PermissionOption* ownAnswer(const ACPConfiguration& configuration,
                                    const PermissionRequest& question) const override;
  /// It asks before an action only where its own settings say so.
  std::optional<std::string> startNotice(const ACPConfiguration& configuration) const override;

  /// Whether some settings file of OpenCode makes it ask.
  static bool settingsAsk(const ACPConfiguration& configuration);
};

}  // namespace vantrell
