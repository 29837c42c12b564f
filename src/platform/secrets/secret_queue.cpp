#include "platform/secrets/secret_queue.h"

namespace vantrell {

SecretQueue::SecretQueue(std::shared_ptr<SecretStore> store, MainQueue& main, BackgroundPool& pool)
    : store_(std::move(store)), main_(main), queue_(pool, "com.local.vantrell.secrets") {}

SecretQueue::~SecretQueue() {
  *isAlive_ = false;
}

template <typename Operation, typename Reply>
void SecretQueue::run(Operation operation, Reply answer) {
  queue_.post([store = store_, &main = main_, isAlive = isAlive_, operation = std::move(operation),
               answer = std::move(answer)]() mutable {
    main.post([isAlive = std::move(isAlive), answer = std::move(answer),
               result = operation(*store)]() mutable {
      if (*isAlive) answer(std::move(result));
    });
  });
}

void SecretQueue::read(std::string service, std::string account,
                       Answer<std::optional<std::string>> answer) {
  run([service = std::move(service),
       account = std::move(account)](SecretStore& store) { return store.read(service, account); },
      std::move(answer));
}

void SecretQueue::write(std::string service, std::string account, std::string value,
                        Answer<> answer) {
  run([service = std::move(service), account = std::move(account), value = std::move(value)](
          SecretStore& store) { return store.write(service, account, value); },
      std::move(answer));
}

void SecretQueue::remove(std::string service, std::string account, Answer<> answer) {
  run([service = std::move(service),
       account = std::move(account)](SecretStore& store) { return store.remove(service, account); },
      std::move(answer));
}

void SecretQueue::status(std::move_only_function<void(SecretStore::Status)> answer) {
  run([](SecretStore& store) { return store.status(); }, std::move(answer));
}

void SecretQueue::unlock(Answer<> answer) {
  run([](SecretStore& store) { return store.unlock(); }, std::move(answer));
}

}  // namespace vantrell
