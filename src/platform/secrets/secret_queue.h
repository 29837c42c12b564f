// The secret store for code on the main queue: each operation runs on a queue of its own, in order,
// and its answer arrives on the main queue. Belongs to the main queue, as do the answers. What is
// under way when it is destroyed is finished, and its answer is dropped.
#pragma once

#include <functional>
#include <memory>

#include "platform/queues/dispatch.h"
#include "platform/secrets/secret_store.h"

namespace vantrell {

class SecretQueue {
 public:
  template <typename T = void>
  using Answer = std::move_only_function<void(SecretStore::Result<T>)>;

  /// The main queue must outlive the pool.
  SecretQueue(std::shared_ptr<SecretStore> store, MainQueue& main, BackgroundPool& pool);
  ~SecretQueue();
  SecretQueue(const SecretQueue&) = delete;
  SecretQueue& operator=(const SecretQueue&) = delete;

  void read(std::string service, std::string account, Answer<std::optional<std::string>> answer);
  void write(std::string service, std::string account, std::string value, Answer<> answer);
  void remove(std::string service, std::string account, Answer<> answer);
  void status(std::move_only_function<void(SecretStore::Status)> answer);
  void unlock(Answer<> answer);

  /// For code that runs on a thread of its own.
  const std::shared_ptr<SecretStore>& store() const { return store_; }

 private:
  template <typename Operation, typename Reply>
  void run(Operation operation, Reply answer);

  std::shared_ptr<SecretStore> store_;
  MainQueue& main_;
  SerialQueue queue_;
  std::shared_ptr<bool> isAlive_ = std::make_shared<bool>(true);  // main queue
};

}  // namespace vantrell
