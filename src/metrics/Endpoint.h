// The agent's metrics as the operator configures them: an HTTP endpoint for Prometheus to scrape
// and, optionally, the same page written atomically to a file for node_exporter's textfile
// collector. Both render the page on the event thread when it is asked for.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "metrics/HttpServer.h"
#include "platform/Log.h"
#include "platform/Scheduler.h"

namespace Metrics {

extern const Platform::LogHandle<std::string_view> LLDP_METRICS_LISTENING;
extern const Platform::LogHandle<std::string_view, std::string_view> LLDP_METRICS_LISTEN_FAILED;
extern const Platform::LogHandle<std::string_view, std::string_view> LLDP_METRICS_TEXTFILE_FAILED;

struct EndpointSettings {
  std::string listen;    // empty: no HTTP endpoint
  std::string textfile;  // empty: no file
  double textfileInterval = 15;
  bool operator==(const EndpointSettings&) const = default;
};

class Endpoint {
 public:
  using Render = std::function<void(std::string& page)>;

  Endpoint(Platform::Scheduler& scheduler, Render render);
  // Removes the file it wrote: a stopped agent's neighbours are not left for the collector.
  ~Endpoint();
  Endpoint(const Endpoint&) = delete;
  Endpoint& operator=(const Endpoint&) = delete;

  // Starts, moves or stops the endpoint and the file to match. Returns the problems (also logged):
  // a refused address leaves no endpoint, and the next change tries again.
  std::vector<std::string> settingsIs(const EndpointSettings& settings);

  const HttpServer* server() const { return server_.get(); }
  uint64_t textfileWrites() const { return textfileWrites_; }
  // Writes the file now; false with error set.
  bool textfileWrite(std::string& error);

 private:
  void handleTextfileClock();
  bool page(std::string_view path, std::string& body, std::string& contentType);

  Platform::Scheduler& scheduler_;
  Render render_;
  EndpointSettings settings_;
  bool applied_ = false;
  std::unique_ptr<HttpServer> server_;
  Platform::Clock textfileClock_;
  uint64_t textfileWrites_ = 0;
};

}  // namespace Metrics
