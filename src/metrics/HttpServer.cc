// The metrics HTTP server on the scheduler, through the HTTP library's external event loop.
#include "metrics/HttpServer.h"

#include <microhttpd.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/Trace.h"

namespace Metrics {

namespace {

Platform::TraceFacility gTrace("MetricsHttp");

void logError(void*, const char* format, va_list args) {
  if (!gTrace.enabled(2)) return;
  char line[512];
  std::vsnprintf(line, sizeof line, format, args);
  TRACE(gTrace, 2) << "http: " << line;
}

// The body is handed to the library, which frees it once sent: a page of megabytes is held
// once, not copied.
MHD_Result queueText(MHD_Connection* connection, unsigned status, std::string body, const char* type) {
  auto* owned = new std::string(std::move(body));
  MHD_Response* response = MHD_create_response_from_buffer_with_free_callback_cls(
      owned->size(), owned->data(), [](void* cls) { delete static_cast<std::string*>(cls); }, owned);
  if (!response) {
    delete owned;
    return MHD_NO;
  }
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, type);
  if (status == MHD_HTTP_METHOD_NOT_ALLOWED) MHD_add_response_header(response, MHD_HTTP_HEADER_ALLOW, "GET, HEAD");
  const MHD_Result result = MHD_queue_response(connection, status, response);
  MHD_destroy_response(response);
  return result;
}

}  // namespace

// The library calls this first when a request's head is in, then once per piece of body, then
// once more with nothing left: the answer goes out on that last call.
struct HttpAccess {
  static MHD_Result call(void* cls, MHD_Connection* connection, const char* url, const char* method, const char*,
                         const char*, size_t* uploadSize, void** state) {
    if (*state == nullptr) {
      *state = cls;
      return MHD_YES;
    }
    if (*uploadSize != 0) {  // a body is read and ignored
      *uploadSize = 0;
      return MHD_YES;
    }
    return static_cast<HttpServer*>(cls)->respond(connection, url, method) ? MHD_YES : MHD_NO;
  }
};

HttpServer::HttpServer(Platform::Scheduler& scheduler, Handler handler, Options options)
    : scheduler_(scheduler), handler_(std::move(handler)), options_(options),
      timeoutClock_(scheduler, [this] { handleEvents(); }) {}

HttpServer::~HttpServer() { stop(); }

void HttpServer::stop() {
  watch_.reset();
  timeoutClock_.timeMinIs(Platform::kNever);
  if (daemon_) MHD_stop_daemon(daemon_);
  daemon_ = nullptr;
}

bool HttpServer::listen(const ListenAddress& address, std::string& error) {
  stop();
  // The socket is ours, so a failure to bind says why in the operator's terms.
  const int fd = ::socket(address.family(), SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    error = std::string("socket: ") + std::strerror(errno);
    return false;
  }
  const int on = 1, off = 0;
  ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (address.family() == AF_INET6) ::setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, address.dualStack ? &off : &on, sizeof on);
  if (::bind(fd, reinterpret_cast<const sockaddr*>(&address.addr), address.length) != 0 || ::listen(fd, 64) != 0) {
    error = address.text() + ": " + std::strerror(errno);
    ::close(fd);
    return false;
  }
  sockaddr_storage bound{};
  socklen_t length = sizeof bound;
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &length);
  port_ = ntohs(bound.ss_family == AF_INET ? reinterpret_cast<sockaddr_in&>(bound).sin_port
                                           : reinterpret_cast<sockaddr_in6&>(bound).sin6_port);

  // MHD_USE_EPOLL without an internal thread: the library does nothing until handleEvents runs.
  daemon_ = MHD_start_daemon(
      MHD_USE_EPOLL | MHD_USE_ERROR_LOG | (address.family() == AF_INET6 ? MHD_USE_IPv6 : 0), 0, nullptr, nullptr,
      &HttpAccess::call, this, MHD_OPTION_LISTEN_SOCKET, fd,
      MHD_OPTION_CONNECTION_LIMIT, options_.maxConnections, MHD_OPTION_PER_IP_CONNECTION_LIMIT,
      options_.maxConnectionsPerAddress, MHD_OPTION_CONNECTION_TIMEOUT,
      options_.idleTimeoutSeconds, MHD_OPTION_EXTERNAL_LOGGER, &logError, nullptr, MHD_OPTION_END);
  if (!daemon_) {
    error = address.text() + ": the HTTP library did not start";
    ::close(fd);
    return false;
  }
  const MHD_DaemonInfo* info = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD);
  if (!info || info->epoll_fd < 0) {
    stop();
    error = address.text() + ": the HTTP library has no event descriptor";
    return false;
  }
  watch_ = scheduler_.readableWatchIs(info->epoll_fd, [this] { handleEvents(); });
  handleEvents();
  return true;
}

void HttpServer::handleEvents() {
  if (!daemon_) return;
  MHD_run(daemon_);
  // Connections the library could not finish in one run (a full socket buffer, a pending
  // timeout) are due again at the time it names: zero means at once.
  MHD_UNSIGNED_LONG_LONG ms = 0;
  if (MHD_get_timeout(daemon_, &ms) == MHD_YES) {
    timeoutClock_.timeMinIs(scheduler_.now() + static_cast<double>(ms) / 1000.0);
  } else {
    timeoutClock_.timeMinIs(Platform::kNever);
  }
}

bool HttpServer::respond(MHD_Connection* connection, const char* url, const char* method) {
  ++counters_.requests;
  if (std::strcmp(method, MHD_HTTP_METHOD_GET) != 0 && std::strcmp(method, MHD_HTTP_METHOD_HEAD) != 0) {
    ++counters_.badMethod;
    return queueText(connection, MHD_HTTP_METHOD_NOT_ALLOWED, "only GET and HEAD\n", "text/plain") == MHD_YES;
  }
  std::string body;
  std::string type = "text/plain; charset=utf-8";
  if (!handler_(url ? url : "", body, type)) {
    ++counters_.notFound;
    return queueText(connection, MHD_HTTP_NOT_FOUND, "not found\n", "text/plain") == MHD_YES;
  }
  return queueText(connection, MHD_HTTP_OK, std::move(body), type.c_str()) == MHD_YES;
}

}  // namespace Metrics
