// A small HTTP server for the metrics page, run on the scheduler's event thread: the HTTP
// library works in its external-event-loop mode, so the scheduler watches its one epoll
// descriptor and a clock keeps its timeouts. Pages are made by the handler on the event thread,
// so they read the records with no lock.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "metrics/ListenAddress.h"
#include "platform/Scheduler.h"

struct MHD_Daemon;
struct MHD_Connection;

namespace Metrics {

class HttpServer {
 public:
  // Writes the page for a path into body and returns true; false for a path it does not serve.
  using Handler = std::function<bool(std::string_view path, std::string& body, std::string& contentType)>;

  struct Options {
    unsigned maxConnections = 32;
    // Per client address, so that one host holding idle connections cannot take every slot
    // from the Prometheus servers that scrape.
    unsigned maxConnectionsPerAddress = 8;
    unsigned idleTimeoutSeconds = 30;
  };
  struct Counters {
    uint64_t requests = 0;
    uint64_t notFound = 0;
    uint64_t badMethod = 0;
  };

  HttpServer(Platform::Scheduler& scheduler, Handler handler, Options options);
  HttpServer(Platform::Scheduler& scheduler, Handler handler) : HttpServer(scheduler, std::move(handler), Options()) {}
  ~HttpServer();
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  // Binds and starts serving; false with a one-line reason.
  bool listen(const ListenAddress& address, std::string& error);
  // The port bound (the one the kernel chose for port 0).
  uint16_t port() const { return port_; }
  const Counters& counters() const { return counters_; }

 private:
  friend struct HttpAccess;  // the library's request callback
  // Queues the answer to one complete request; false when nothing could be queued.
  bool respond(MHD_Connection* connection, const char* url, const char* method);
  void handleEvents();
  void stop();

  Platform::Scheduler& scheduler_;
  Handler handler_;
  Options options_;
  MHD_Daemon* daemon_ = nullptr;
  std::unique_ptr<Platform::FdWatch> watch_;
  Platform::Clock timeoutClock_;
  uint16_t port_ = 0;
  Counters counters_;
};

}  // namespace Metrics
