// The metrics endpoint and textfile as configured.
#include "metrics/Endpoint.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "metrics/Exposition.h"

namespace Metrics {

const Platform::LogHandle<std::string_view> LLDP_METRICS_LISTENING(
    {"LLDP_METRICS_LISTENING", Platform::Severity::info, "LLDP metrics served on http://%s/metrics",
     "The LLDP agent serves its counters and neighbors for Prometheus at this address.",
     Platform::kNoActionRequired, 0, {"ADDRESS"}});
const Platform::LogHandle<std::string_view, std::string_view> LLDP_METRICS_LISTEN_FAILED(
    {"LLDP_METRICS_LISTEN_FAILED", Platform::Severity::error, "LLDP metrics endpoint %s not started: %s",
     "The LLDP agent could not listen for metrics scrapes at the configured address; LLDP itself runs on.",
     "Correct metrics.listen, or stop whatever holds the port, and reload the agent.", 0,
     {"ADDRESS", "ERROR"}});
const Platform::LogHandle<std::string_view, std::string_view> LLDP_METRICS_TEXTFILE_FAILED(
    {"LLDP_METRICS_TEXTFILE_FAILED", Platform::Severity::error, "LLDP metrics file %s not written: %s",
     "The LLDP agent could not write its metrics for the textfile collector; it tries again at every interval.",
     "Check that the directory exists and that the agent's user may write to it.", 3600, {"FILE", "ERROR"}});

Endpoint::Endpoint(Platform::Scheduler& scheduler, Render render)
    : scheduler_(scheduler), render_(std::move(render)), textfileClock_(scheduler, [this] { handleTextfileClock(); }) {}

Endpoint::~Endpoint() {
  if (!settings_.textfile.empty() && textfileWrites_ > 0) ::unlink(settings_.textfile.c_str());
}

std::vector<std::string> Endpoint::settingsIs(const EndpointSettings& settings) {
  std::vector<std::string> problems;
  const EndpointSettings previous = settings_;
  const bool first = !applied_;
  applied_ = true;
  settings_ = settings;

  if (first || previous.listen != settings.listen || (!settings.listen.empty() && !server_)) {
    server_.reset();
    if (!settings.listen.empty()) {
      std::string error;
      auto address = listenAddressOf(settings.listen, error);
      if (address) {
        auto server = std::make_unique<HttpServer>(
            scheduler_, [this](std::string_view path, std::string& body, std::string& type) {
              return page(path, body, type);
            });
        if (server->listen(*address, error)) {
          server_ = std::move(server);
          LLDP_METRICS_LISTENING.emit(address->text());
        }
      }
      if (!server_) {
        LLDP_METRICS_LISTEN_FAILED.emit(settings.listen, error);
        problems.push_back("metrics.listen: " + error);
      }
    }
  }

  if (first || previous.textfile != settings.textfile || previous.textfileInterval != settings.textfileInterval) {
    if (previous.textfile != settings.textfile && !previous.textfile.empty() && textfileWrites_ > 0) {
      ::unlink(previous.textfile.c_str());
    }
    textfileWrites_ = 0;
    textfileClock_.timeMinIs(Platform::kNever);
    if (!settings.textfile.empty()) {
      std::string error;
      if (!textfileWrite(error)) problems.push_back("metrics.textfile: " + error);
      textfileClock_.timeMinIs(scheduler_.now() + settings.textfileInterval);
    }
  }
  return problems;
}

bool Endpoint::page(std::string_view path, std::string& body, std::string& contentType) {
  if (path == "/metrics") {
    render_(body);
    contentType = kContentType;
    return true;
  }
  if (path == "/") {
    body = "lldp-agent: the metrics are at /metrics\n";
    return true;
  }
  return false;
}

bool Endpoint::textfileWrite(std::string& error) {
  std::string text;
  render_(text);
  // Written beside the file and renamed over it, so the collector never reads half a page; the
  // temporary name does not end in .prom, so the collector never reads it either.
  const std::string tmp = settings_.textfile + ".tmp";
  const int fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644);
  bool ok = fd >= 0;
  size_t done = 0;
  while (ok && done < text.size()) {
    const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    ok = n > 0;
    if (ok) done += static_cast<size_t>(n);
  }
  if (ok) ok = ::close(fd) == 0;
  else if (fd >= 0) ::close(fd);
  if (ok) ok = ::rename(tmp.c_str(), settings_.textfile.c_str()) == 0;
  if (!ok) {
    error = std::strerror(errno);
    if (fd >= 0) ::unlink(tmp.c_str());
    LLDP_METRICS_TEXTFILE_FAILED.emit(settings_.textfile, error);
    return false;
  }
  ++textfileWrites_;
  return true;
}

void Endpoint::handleTextfileClock() {
  std::string error;
  textfileWrite(error);
  textfileClock_.timeMinIs(scheduler_.now() + settings_.textfileInterval);
}

}  // namespace Metrics
