// Hands what the engine tells to the front end, and to paired devices as well. Main queue.
#pragma once

#include "engine/core/engine_events.h"
#include "remote/host/remote_access.h"

namespace vantrell {

class EngineEventRelay final : public EngineEvents {
 public:
  /// `front`: null where nothing can be asked. It must outlive this.
  explicit EngineEventRelay(EngineEvents* front) : front_(front ? *front : none_) {}
  /// Null while there is none.
  void setRemote(RemoteAccess* remote) { remote_ = remote; }

  void chooseFolder(std::string_view title, std::string_view prompt,
                    std::function<void(std::string path)> reply) override {
    front_.chooseFolder(title, prompt, std::move(reply));
  }
  void prepareNotifications() override { front_.prepareNotifications(); }
  void taskEvent(TaskEventKind kind, std::string_view message,
                 const ThreadExecutionKey& key) override {
    front_.taskEvent(kind, message, key);
    if (remote_) remote_->sendRemoteTaskEvent(kind, message, key);
  }
  void imagineEvent(ImagineEventKind kind, std::string_view message) override {
    front_.imagineEvent(kind, message);
    if (remote_) remote_->sendRemoteImagineEvent(kind, message);
  }

 private:
  EngineEvents none_;
  EngineEvents& front_;
  RemoteAccess* remote_ = nullptr;
};

}  // namespace vantrell
