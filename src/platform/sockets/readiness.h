// The thread that waits for the sockets of WebSockets. Nothing else runs on it.
#pragma once

namespace boost::asio {
class io_context;
}

namespace vantrell {

/// It runs until the program ends, as do the descriptors of queues that are gone. Any thread.
boost::asio::io_context& socketReadiness();

}  // namespace vantrell
