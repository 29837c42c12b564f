#include "platform/sockets/readiness.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <signal.h>
#include <thread>

namespace vantrell {

namespace asio = boost::asio;

asio::io_context& socketReadiness() {
  struct Waiting {
    Waiting() {
      sigset_t all;
      sigset_t before;
      ::sigfillset(&all);
      ::pthread_sigmask(SIG_SETMASK, &all, &before);
      std::thread([this] { context.run(); }).detach();
      ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    }
    asio::io_context context{1};
    asio::executor_work_guard<asio::io_context::executor_type> work{context.get_executor()};
  };
  static auto* const waiting = new Waiting;
  return waiting->context;
}

}  // namespace vantrell
