// The secret store for code on the main queue: operations run on a queue of their own, in order,
// and each answer arrives on the main queue. Belongs to the main queue. What is under way when it
// is destroyed is finished, and its answer is dropped.
#pragma once

#include <functional>
#include <memory>

#include "platform/queues/dispatch.h"
#include "platform/secrets/secret_store.h"

namespace vantrell {

class SecretQueue {
 public:
  /// The main queue must outlive the pool.
  SecretQueue(std::shared_ptr<SecretStore> store, MainQueue& main, BackgroundPool& pool)
      : store_(std::move(store)), main_(main), queue_(pool, "com.local.vantrell.secrets") {}
  ~SecretQueue() { *isAlive_ = false; }
  SecretQueue(const SecretQueue&) = delete;
  SecretQueue& operator=(const SecretQueue&) = delete;

  template <typename T = void>
  using Answer = std::move_only_function<void(SecretStore::Result<T>)>;

  void read(std::string service, std::string account, Answer<std::optional<std::string>> answer) {
    run([service, account](SecretStore& store) { return store.read(service, account); },
        std::move(answer));
  }
  void write(std::string service, std::string account, std::string value, Answer<> answer) {
    run([service, account,
         value](SecretStore& store) { return store.write(service, account, value); },
        std::move(answer));
  }
  void remove(std::string service, std::string account, Answer<> answer) {
    run([service, account](SecretStore& store) { return store.remove(service, account); },
        std::move(answer));
  }

  /// Calls `answer` with what `operation` returns for the store, in order with the others: for
  /// several steps that belong together, and files that go with a secret.
  template <typename Operation, typename Answer>
  void run(Operation operation, Answer answer) {
    queue_.post([store = store_, &main = main_, isAlive = isAlive_,
                 operation = std::move(operation), answer = std::move(answer)]() mutable {
      main.post([isAlive = std::move(isAlive), answer = std::move(answer),
                 result = operation(*store)]() mutable {
        if (*isAlive) answer(std::move(result));
      });
    });
  }

 private:
  std::shared_ptr<SecretStore> store_;
  MainQueue& main_;
  SerialQueue queue_;
  std::shared_ptr<bool> isAlive_ = std::make_shared<bool>(true);  // main queue
};

}  // namespace vantrell
