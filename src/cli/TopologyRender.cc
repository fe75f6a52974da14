// Table, JSON, DOT and SVG of the topology and the wiring check.
#include "cli/TopologyRender.h"

#include <graphviz/cgraph.h>
#include <graphviz/gvc.h>

#include <cstdlib>
#include <sstream>

#include "cli/Model.h"
#include "cli/Tables.h"
#include "platform/Text.h"

namespace Cli {

namespace {

std::string endText(const LinkEnd& e) { return e.host.empty() ? "nothing" : e.host + ":" + e.port; }

Json endJson(const LinkEnd& e) {
  if (e.host.empty()) return nullptr;
  return {{"host", e.host}, {"port", e.port}};
}

}  // namespace

std::string dotQuoted(const std::string& name) {
  // A neighbour's name may carry terminal escapes and bytes that are no UTF-8, which no SVG may
  // hold: DOT is text, and takes them escaped as people read them.
  const std::string id = Platform::printable(name);
  // The DOT reader takes \" for a quote and keeps every other backslash as it is; a backslash
  // that would end up before a quote is doubled (and so reads back doubled: no form keeps it).
  std::string out = "\"";
  for (size_t i = 0; i < id.size(); ++i) {
    const char c = id[i];
    if (c == '"') out += '\\';
    out += c;
    if (c == '\\' && (i + 1 == id.size() || id[i + 1] == '"')) out += '\\';
  }
  return out + "\"";
}

static std::string dotLabel(const std::string& name) {
  // Labels take escapes of their own (\N, \l): a backslash that means itself is written twice.
  std::string out = "\"";
  for (const char c : Platform::printable(name)) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + "\"";
}

void renderTopologyTable(const Topology& t, std::ostream& out) {
  Table table({"Host", "Port", "Neighbor", "Neighbor port", "Seen by"});
  for (const Link& link : t.links) {
    table.rowIs({link.a.host, link.a.port, link.b.host, link.b.port, link.both ? "both" : "one end"});
  }
  table.print(out);
  size_t silent = 0;
  for (const Host& h : t.hosts) silent += h.reports ? 0 : 1;
  out << t.links.size() << " links between " << t.hosts.size() << " hosts";
  if (silent) out << " (" << silent << " known only from their neighbors)";
  out << "\n";
}

Json topologyJson(const Topology& t) {
  Json hosts = Json::array();
  for (const Host& h : t.hosts) {
    hosts.push_back({{"name", h.name}, {"reports", h.reports}, {"chassisId", h.chassisId},
                     {"managementAddress", h.managementAddress}});
  }
  Json links = Json::array();
  for (const Link& l : t.links) links.push_back({{"a", endJson(l.a)}, {"b", endJson(l.b)}, {"both", l.both}});
  return {{"schema", kJsonSchema}, {"hosts", std::move(hosts)}, {"links", std::move(links)}};
}

std::string topologyDot(const Topology& t) {
  std::ostringstream out;
  out << "graph fleet {\n"
         "  graph [rankdir=TB, nodesep=0.3, ranksep=1.2, fontname=\"Helvetica\"];\n"
         "  node [shape=box, style=rounded, fontname=\"Helvetica\"];\n"
         "  edge [fontname=\"Helvetica\", fontsize=9, labelfontsize=9];\n";
  for (const Host& h : t.hosts) {
    out << "  " << dotQuoted(h.name);
    if (!h.reports) out << " [style=\"rounded,dashed\", color=gray40, tooltip=\"known only from its neighbors\"]";
    out << ";\n";
  }
  for (const Link& l : t.links) {
    out << "  " << dotQuoted(l.a.host) << " -- " << dotQuoted(l.b.host) << " [taillabel=" << dotLabel(l.a.port)
        << ", headlabel=" << dotLabel(l.b.port);
    if (!l.both) out << ", style=dashed";
    out << "];\n";
  }
  out << "}\n";
  return out.str();
}

std::string wiringDot(const Topology& t) {
  std::ostringstream out;
  out << "graph wiring {\n";
  for (const Link& l : t.links) {
    out << "  " << dotQuoted(l.a.host) << ":" << dotQuoted(l.a.port) << " -- " << dotQuoted(l.b.host) << ":"
        << dotQuoted(l.b.port) << ";\n";
  }
  out << "}\n";
  return out.str();
}

std::optional<std::string> svgOf(const std::string& dot, std::string& error) {
  GVC_t* gvc = gvContext();
  Agraph_t* g = agmemread(dot.c_str());
  if (!g) {
    gvFreeContext(gvc);
    error = "Graphviz could not read the graph";
    return std::nullopt;
  }
  std::optional<std::string> svg;
  if (gvLayout(gvc, g, "dot") == 0) {
    char* data = nullptr;
    unsigned int length = 0;
    if (gvRenderData(gvc, g, "svg", &data, &length) == 0 && data) svg = std::string(data, length);
    gvFreeRenderData(data);
    gvFreeLayout(gvc, g);
  }
  if (!svg) error = "Graphviz could not lay out or render the graph (are its plugins installed?)";
  agclose(g);
  gvFreeContext(gvc);
  return svg;
}

void renderCheckText(const WiringCheck& check, std::ostream& out) {
  Table table({"Link", "Result", "Found instead"});
  size_t bad = 0;
  for (const LinkCheck& c : check.links) {
    std::string instead;
    if (c.verdict == LinkVerdict::wrongPeer) {
      if (!c.aSees.host.empty()) instead = endText(c.expected.a) + " -- " + endText(c.aSees);
      if (!c.bSees.host.empty()) {
        instead += (instead.empty() ? "" : "; ") + endText(c.expected.b) + " -- " + endText(c.bSees);
      }
    }
    if (c.verdict != LinkVerdict::ok) ++bad;
    table.rowIs({endText(c.expected.a) + " -- " + endText(c.expected.b), verdictName(c.verdict), instead});
  }
  table.print(out);
  if (!check.unexpected.empty()) {
    out << "\nNot expected:\n";
    Table extra({"Link", "Seen by"});
    for (const Link& l : check.unexpected) {
      extra.rowIs({endText(l.a) + " -- " + endText(l.b), l.both ? "both" : "one end"});
    }
    extra.print(out);
  }
  out << "\n" << (check.links.size() - bad) << " of " << check.links.size() << " links as expected, " << bad
      << " not, " << check.unexpected.size() << " not expected\n";
}

Json checkJson(const WiringCheck& check) {
  Json links = Json::array();
  for (const LinkCheck& c : check.links) {
    Json j = {{"a", endJson(c.expected.a)}, {"b", endJson(c.expected.b)}, {"result", verdictName(c.verdict)}};
    if (c.verdict == LinkVerdict::wrongPeer) {
      j["aPeer"] = endJson(c.aSees);
      j["bPeer"] = endJson(c.bSees);
    }
    links.push_back(std::move(j));
  }
  Json unexpected = Json::array();
  for (const Link& l : check.unexpected) unexpected.push_back({{"a", endJson(l.a)}, {"b", endJson(l.b)}, {"both", l.both}});
  return {{"schema", kJsonSchema}, {"ok", check.ok()}, {"links", std::move(links)}, {"unexpected", std::move(unexpected)}};
}

std::optional<std::vector<ExpectedLink>> wiringOf(const std::string& dotText, std::string& error) {
  // The parser reports errors through its own channel; the message it keeps is read below.
  agseterr(AGMAX);
  agseterrf([](char*) { return 0; });
  Agraph_t* g = agmemread(dotText.c_str());
  if (!g) {
    char* why = aglasterr();  // the caller's to free
    error = "not a DOT graph" + std::string(why ? ": " + std::string(why) : "");
    std::free(why);
    while (!error.empty() && (error.back() == '\n' || error.back() == ' ')) error.pop_back();
    return std::nullopt;
  }
  std::vector<ExpectedLink> links;
  std::string problem;
  for (Agnode_t* n = agfstnode(g); n && problem.empty(); n = agnxtnode(g, n)) {
    for (Agedge_t* e = agfstout(g, n); e; e = agnxtout(g, e)) {
      const char* tailPort = agget(e, const_cast<char*>("tailport"));
      const char* headPort = agget(e, const_cast<char*>("headport"));
      const std::string tail = agnameof(agtail(e)), head = agnameof(aghead(e));
      if (!tailPort || !*tailPort || !headPort || !*headPort) {
        problem = "the edge " + tail + " -- " + head + " needs a port at both ends, as \"" + tail +
                  "\":\"swp1\" -- \"" + head + "\":\"swp2\"";
        break;
      }
      links.push_back({{tail, tailPort}, {head, headPort}});
    }
  }
  agclose(g);
  if (!problem.empty()) {
    error = problem;
    return std::nullopt;
  }
  return links;
}

}  // namespace Cli
