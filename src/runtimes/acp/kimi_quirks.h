// Kimi Code, version 2.
#pragma once

#include "runtimes/acp/acp_quirks.h"

namespace vantrell {

class KimiQuirks final : public ACPQuirks {
 public:
  explicit KimiQuirks(const Environment& environment);

  bool hasConfigOptions() const override { return true; }
  /// It has no mode "manual"; its own word for one that asks is "default". A session that ran with
  /// full access keeps that mode when it is opened again.
  std::vector<std::string_view> modeValues(GrokPermissionMode mode) const override;
  void turnBegins(const std::string& sessionID) override;
  /// It writes its log up to a quarter of a second late, so its answer to the prompt comes first.
  bool isSettled(bool hasWorked) override;
  /// It ends a turn whose model fails as if all were well, mostly without a word. Its log of the
  /// session has the reason.
  std::optional<AgentError> hiddenFailure(const JsonObject& result, bool hasWorked) const override;

  /// The message of the failed model request that ended this piece of the log; absent when the last
  /// request went well.
  static std::optional<std::string> failureIn(std::string_view log);
  /// Every model request in this piece of the log has its end in it, and there is one.
  static bool hasEnded(std::string_view log);

 private:
  std::string readLog(std::uint64_t from) const;

  const std::string sessionsFolder_;
  std::string logPath_;  // empty until the session has a log
  std::string sessionID_;
  std::uint64_t logStart_ = 0;      // bytes of the log that belong to earlier turns
  std::optional<std::string> log_;  // of this turn, as it was at the last look
};

}  // namespace vantrell
