// Links from observations, and the wiring check.
#include "cli/TopologyModel.h"

#include <algorithm>
#include <map>
#include <set>

#include "platform/Text.h"

namespace Cli {

namespace {

// Port id subtypes that are addresses rather than names.
bool addressSubtype(const std::string& subtype) { return subtype == "macAddress" || subtype == "networkAddress"; }

Link linkOf(LinkEnd x, LinkEnd y) {
  if (y < x) std::swap(x, y);
  return Link{std::move(x), std::move(y), false};
}

}  // namespace

Topology topologyOf(const FleetReport& report) {
  std::map<std::string, const FleetAgent*> bySource;
  std::map<std::string, std::string> nameByChassis;  // the fleet's own agents
  std::map<std::string, Host> hosts;
  for (const FleetAgent& agent : report.agents) {
    bySource[agent.source] = &agent;
    const std::string name = !agent.systemName.empty() ? agent.systemName
                             : !agent.chassisId.empty() ? agent.chassisId
                                                        : agent.source;
    if (!agent.chassisId.empty()) nameByChassis.emplace(agent.chassisId, name);
    Host& host = hosts[name];
    host.name = name;
    host.reports = true;
    host.chassisId = agent.chassisId;
  }

  // Each end's report, by the end it is made at.
  std::map<LinkEnd, std::set<LinkEnd>> seen;
  for (const Observation& o : report.observations) {
    auto agent = bySource.find(o.source);
    if (agent == bySource.end()) continue;  // a report whose agent did not say who it is
    if (o.localPort.empty() || o.chassisId.empty()) continue;  // labels missing: not a cable
    const FleetAgent& a = *agent->second;
    const std::string local = !a.systemName.empty() ? a.systemName : !a.chassisId.empty() ? a.chassisId : a.source;
    std::string peer;
    if (auto known = nameByChassis.find(o.chassisId); known != nameByChassis.end()) {
      peer = known->second;
    } else {
      peer = !o.systemName.empty() ? o.systemName : o.chassisId;
    }
    const std::string peerPort =
        addressSubtype(o.portIdSubtype) && !o.portDescription.empty() ? o.portDescription : o.portId;
    Host& host = hosts[peer];
    if (host.name.empty()) {
      host.name = peer;
      host.chassisId = o.chassisId;
    }
    if (host.managementAddress.empty()) host.managementAddress = o.managementAddress;
    seen[{local, o.localPort}].insert({peer, peerPort});
  }

  std::map<std::pair<LinkEnd, LinkEnd>, Link> links;
  for (const auto& [end, peers] : seen) {
    for (const LinkEnd& peer : peers) {
      Link link = linkOf(end, peer);
      auto back = seen.find(peer);
      link.both = back != seen.end() && back->second.contains(end);
      links.emplace(std::make_pair(link.a, link.b), link);
    }
  }

  Topology t;
  for (auto& [name, host] : hosts) t.hosts.push_back(std::move(host));
  for (auto& [ends, link] : links) t.links.push_back(std::move(link));
  return t;
}

bool WiringCheck::ok() const {
  return unexpected.empty() &&
         std::all_of(links.begin(), links.end(), [](const LinkCheck& c) { return c.verdict == LinkVerdict::ok; });
}

WiringCheck checkWiring(const std::vector<ExpectedLink>& expectedAsGiven, const Topology& topologyAsFound) {
  // Names are compared as the wiring file shows them: a neighbour's control characters are
  // written escaped there (the file is text people read), so a file written by `--format wiring`
  // matches what was found. Escaping is idempotent, so names typed by hand compare as they are.
  const auto shown = [](LinkEnd e) {
    return LinkEnd{Platform::printable(e.host), Platform::printable(e.port)};
  };
  Topology topology = topologyAsFound;
  for (Link& link : topology.links) {
    const bool both = link.both;
    link = linkOf(shown(link.a), shown(link.b));
    link.both = both;
  }
  std::vector<ExpectedLink> expected = expectedAsGiven;
  for (ExpectedLink& e : expected) e = ExpectedLink{shown(e.a), shown(e.b)};
  // Every end of a link found, with what is at its other end.
  std::multimap<LinkEnd, LinkEnd> peerOf;
  std::set<std::pair<LinkEnd, LinkEnd>> found;
  for (const Link& link : topology.links) {
    peerOf.emplace(link.a, link.b);
    peerOf.emplace(link.b, link.a);
    found.emplace(link.a, link.b);
  }
  // What an end is cabled to other than `want`; empty when nothing else.
  auto otherPeer = [&](const LinkEnd& end, const LinkEnd& want) {
    auto [from, to] = peerOf.equal_range(end);
    for (auto it = from; it != to; ++it) {
      if (it->second != want) return it->second;
    }
    return LinkEnd{};
  };

  WiringCheck check;
  std::set<std::pair<LinkEnd, LinkEnd>> wanted;
  for (const ExpectedLink& e : expected) {
    const Link key = linkOf(e.a, e.b);
    wanted.emplace(key.a, key.b);
    LinkCheck c;
    c.expected = e;
    if (found.contains({key.a, key.b})) {
      c.verdict = LinkVerdict::ok;
    } else {
      c.aSees = otherPeer(e.a, e.b);
      c.bSees = otherPeer(e.b, e.a);
      c.verdict = c.aSees.host.empty() && c.bSees.host.empty() ? LinkVerdict::missing : LinkVerdict::wrongPeer;
    }
    check.links.push_back(std::move(c));
  }
  for (const Link& link : topology.links) {
    if (!wanted.contains({link.a, link.b})) check.unexpected.push_back(link);
  }
  return check;
}

const char* verdictName(LinkVerdict verdict) {
  switch (verdict) {
    case LinkVerdict::ok: return "ok";
    case LinkVerdict::missing: return "missing";
    case LinkVerdict::wrongPeer: return "wrong-peer";
  }
  return "?";
}

}  // namespace Cli
