// A picture or film being made, as a session follows it: shown to people, or as one JSON object a
// line (docs/terminal.md). Main queue.
#pragma once

#include "shell/terminal/session.h"

namespace vantrell::shell {

class MediaJob final : public Job {
 public:
  MediaJob(CommandContext& context, std::string prompt, ImagineKind kind);

  void begin() override;
  void changed(const ChangeBatch& batch) override;
  bool isAtRest() const override;
  bool isStopping() const override;
  void stop() override;
  Question question() const override;
  Result<> answer(const PermissionRequest& request, const PermissionOption* option,
                  Approvals::Answerer answerer) override;
  void conclude() override;
  void endWork() override;
  void tellEnd() override;
  int status() const override { return status_; }

 private:
  ImagineController& generator() const;
  void tellItem(const ImagineItem& item);

  CommandContext& context_;
  const std::string prompt_;
  const ImagineKind kind_;
  const std::size_t itemsBefore_;
  std::size_t itemsTold_;
  ConnectionState::Kind state_ = ConnectionState::Kind::idle;
  std::string progress_;
  bool isStopped_ = false;
  int status_ = 0;
  std::string refusal_;         // of the prompt
  std::string words_, answer_;  // how it ended
};

}  // namespace vantrell::shell
