// The state socket's requests: one JSON object in, one reply out, independent of how the bytes
// travel. Subscriptions belong to the session that made them.
#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "ipc/StateTypes.h"
#include "ipc/Subscription.h"
#include "platform/StateDb.h"
#include "records/LldpRecords.h"

namespace Ipc {

inline constexpr int kProtocolVersion = 1;

// The running configuration, kept by the daemon: keys and values checked exactly as the
// configuration file's are. An empty interface names a global key.
class ConfigService {
 public:
  virtual ~ConfigService() = default;
  // byRoot: the client is root, and may change every key.
  virtual bool configKeyIs(const std::string& intf, const std::string& key, const std::string& value, bool byRoot,
                           std::string& error) = 0;
  // Puts the key back to its default.
  virtual bool configKeyDel(const std::string& intf, const std::string& key, bool byRoot, std::string& error) = 0;
  // The running configuration as the file would hold it.
  virtual std::string configText() const = 0;
  // Writes the running configuration back to its file, atomically; note says what the
  // operator should know of a save that succeeded (comments that could not be kept).
  virtual bool configSave(std::string& error, std::string& note) = 0;
};

// Who is at the other end of a session.
struct Peer {
  uid_t uid = 0;
  pid_t pid = 0;
};

// One client as the service sees it.
class Session {
 public:
  virtual ~Session();
  // Queues one message line for the client.
  virtual void send(const Json& message) = 0;
  virtual const Peer& peer() const = 0;

 private:
  friend class Service;
  std::map<uint64_t, std::unique_ptr<Subscription>> subscriptions_;
};

// Where the agent mounts what the service reads and writes.
struct ServicePaths {
  std::string status = "l2discovery/lldp/status/all";
  std::string config = "l2discovery/lldp/config";
  std::string localSystem = "l2discovery/lldp/localSystem";
  std::string cliConfig = "l2discovery/lldp/cliConfig";
  std::string remTablesCliConfig = "l2discovery/lldp/remTablesCliConfig";
  std::string remTablesStatus = "l2discovery/lldp/remTablesStatus";
  std::string externalTlvs = "l2discovery/lldp/externalTlvs";
  std::string poePort = "environment/power/status/poePort";
  std::string dot1x = "identity/dot1x/status";
  std::string classification = "identity/nbrClassification/status";
  // The external-TLV client the configuration file's own TLVs are published as: no request
  // may write or remove it, or file changes would stop reaching the wire.
  std::string configTlvClient = "config";
};

// Bounds on what clients may have the agent keep for them. A request beyond one is refused
// with a "limit" error naming it, and changes nothing.
struct ServiceLimits {
  size_t externalTlvClients = 32;
  size_t portsPerClient = 4096;
  size_t tlvsPerPort = 32;
  size_t tlvsPerClient = 4096;
};


class Service {
 public:
  using Paths = ServicePaths;
  using Limits = ServiceLimits;

  Service(Platform::StateDb& db, Paths paths = {}, Limits limits = {});
  ~Service();

  void configServiceIs(ConfigService* config) { config_ = config; }
  // Daemon figures added to the "status" reply (version, uptime, drops, resyncs).
  void statusProviderIs(std::function<Json()> provider) { statusProvider_ = std::move(provider); }

  struct Reply {
    std::string line;  // the reply's JSON text, without the newline
    bool ok = false;
  };
  // One request line; the reply to send (every request gets exactly one). Replies are composed as
  // text: the neighbour tables go out without a JSON tree of their own.
  Reply handleText(const std::string& line, Session& session);
  Json handle(const std::string& line, Session& session);
  // The session is closing: its subscriptions and its short-lived TLVs go.
  void sessionGone(Session& session);

  size_t subscriptions() const { return subscriptionCount_; }

 private:
  // Appends the reply's fields, each preceded by a comma, to out.
  void dispatch(const Json& request, Session& session, std::string& out);
  Json fields(const std::string& op, const Json& request, Session& session);
  Json get(const Json& request);
  Json list(const std::string& path);
  void neighbors(const Json& request, std::string& out);
  Json interfaces(const Json& request);
  // Refuses names that are no LLDP interface, naming those that are.
  void interfacesKnown(const std::set<std::string>& names);
  Json status();
  Json subscribe(const Json& request, Session& session);
  Json unsubscribe(const Json& request, Session& session);
  Json set(const Json& request, Session& session);
  Json del(const Json& request, Session& session);
  Json clear(const Json& request, Session& session);
  Json setPoePort(const std::string& intf, const Json& value, Session& session);
  // External TLV clients: a whole client replaced, one TLV added, TLVs or the client removed.
  Json externalTlvsIs(const std::string& client, const Json& request, Session& session);
  Json externalTlvAdd(const std::string& client, const Json& request, Session& session);
  Json externalTlvDel(const std::string& client, const Json& request, Session& session);
  // Refuses a client name no request may touch, and a new client beyond the limit.
  Platform::Ptr<Lldp::ExternalTlvConfig> externalTlvClient(const std::string& client, bool create);
  void ephemeralIs(const std::string& client, Session* owner);
  // The log line of a change a client made.
  void changed(const Session& session, const std::string& what);

  Platform::StateDb& db_;
  Paths paths_;
  Limits limits_;
  // Clients whose TLVs go when the session that last wrote them closes.
  std::map<std::string, Session*> ephemeralOwner_;
  ConfigService* config_ = nullptr;
  std::function<Json()> statusProvider_;
  uint64_t nextSubscription_ = 1;
  size_t subscriptionCount_ = 0;
};

// A reply refusing the request: {"ok": false, "error": {"code": code, "message": message}}.
Json errorReply(const std::string& code, const std::string& message);

}  // namespace Ipc
