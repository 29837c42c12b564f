// The two files of the gateway: personal-gateway.json (how it listens, the site keys) and
// personal-gateway-jobs.json, owner-only. Writing happens in the background, the newest state
// first; one that fails is announced and tried again. Main queue.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "engine/core/changes.h"
#include "gateway/gateway_records.h"
#include "platform/files/file_error.h"
#include "platform/queues/dispatch.h"

namespace vantrell {

class OrchestrationStore;

class GatewayStore {
 public:
  using Jobs = std::vector<std::shared_ptr<const GatewayJob>>;

  /// The support folder is the program's own data folder, which holds both files. What is given
  /// must outlive it.
  GatewayStore(MainQueue& main, Changes& changes, const std::string& supportFolder,
               Executor& background);
  /// flush().
  ~GatewayStore();
  GatewayStore(const GatewayStore&) = delete;
  GatewayStore& operator=(const GatewayStore&) = delete;

  /// The defaults if there is no file, or it cannot be read; such a file is quarantined before
  /// another takes its place.
  GatewayConfiguration loadConfiguration();
  std::vector<GatewayJob> loadJobs();

  void save(const GatewayConfiguration& configuration);
  void save(Jobs jobs);
  /// Called when all that was handed over until now is on the disk, or could not be written: at
  /// once where nothing waits. An answer to a caller can so follow what it promises.
  void whenSaved(std::function<void()> done);
  /// Waits for that; false when some of it could not be written. It blocks: for the end of the
  /// process.
  bool flush();

  /// After a write has failed.
  static constexpr std::chrono::seconds retryPause{30};

 private:
  struct Batch;
  using Write = std::function<files::Result<>()>;  // background
  /// Main queue: moves a file that could not be read out of the way first, which may fail and is
  /// then tried again with the write.
  using Prepare = std::function<Write()>;
  using Prepared = std::map<std::string_view, Prepare>;  // by file

  void put(std::string_view name, Prepare prepare);
  void start();
  void finished(const std::shared_ptr<Batch>& batch);
  void retry();

  MainQueue& main_;
  Changes& changes_;
  Executor& background_;
  const std::unique_ptr<OrchestrationStore> files_;
  std::shared_ptr<Batch> pending_;
  std::shared_ptr<Batch> underWay_;
  Prepared failed_;  // to be tried again
  Timer retryTimer_;
  std::shared_ptr<void> life_ = std::make_shared<int>();  // what the background posts ends with us
};

}  // namespace vantrell
