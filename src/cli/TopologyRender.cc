// Table, JSON, DOT and SVG of the topology and the wiring check.
#include "cli/TopologyRender.h"

#include <graphviz/cgraph.h>
#include <graphviz/gvc.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
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
  // The DOT reader takes \" for a quote, drops a backslash before a newline, and keeps a pair of
  // backslashes as a pair. So a run of backslashes reads back as written unless an odd one ends
  // before a quote, a newline or the closing quote, where its last backslash would pair with what
  // follows and a quote would end the string early: such a run gets one backslash more (no form
  // reads back as an odd run there), and a name never breaks out of its quotes.
  // A NUL would end the document for the reader: it is left out.
  std::string out = "\"";
  size_t run = 0;  // backslashes just written
  auto endRun = [&](bool beforeSpecial) {
    if (run % 2 == 1 && beforeSpecial) out += '\\';
    run = 0;
  };
  for (const char c : id) {
    if (c == '\0') continue;
    if (c == '\\') {
      ++run;
      out += c;
      continue;
    }
    endRun(c == '"' || c == '\n');
    if (c == '"') out += '\\';
    out += c;
  }
  endRun(true);
  return out + "\"";
}

static std::string dotLabel(const std::string& name) {
  // Labels take escapes of their own (\N, \l): a backslash that means itself is written twice.
  std::string out = "\"";
  for (const char c : Platform::printable(name)) {
    if (c == '\0') continue;
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
    // The label is the name as text: a name is not read for the label's escapes (\N, \G, \l).
    out << "  " << dotQuoted(h.name) << " [label=" << dotLabel(h.name);
    if (!h.reports) out << ", style=\"rounded,dashed\", color=gray40, tooltip=\"known only from its neighbors\"";
    out << "];\n";
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

namespace {

// The file in memory as a channel for the DOT reader, which reads graph after graph from it.
struct MemoryChannel {
  std::string_view text;
  size_t at = 0;
};

int readMemory(void* chan, char* buf, int size) {
  auto& c = *static_cast<MemoryChannel*>(chan);
  const size_t n = std::min(static_cast<size_t>(size), c.text.size() - c.at);
  std::memcpy(buf, c.text.data() + c.at, n);
  c.at += n;
  return static_cast<int>(n);
}

// Appends the edges of one graph; false with problem set when an edge lacks a port.
bool edgesOf(Agraph_t* g, std::vector<ExpectedLink>& links, std::string& problem) {
  for (Agnode_t* n = agfstnode(g); n; n = agnxtnode(g, n)) {
    for (Agedge_t* e = agfstout(g, n); e; e = agnxtout(g, e)) {
      const char* tailPort = agget(e, const_cast<char*>("tailport"));
      const char* headPort = agget(e, const_cast<char*>("headport"));
      const std::string tail = agnameof(agtail(e)), head = agnameof(aghead(e));
      if (!tailPort || !*tailPort || !headPort || !*headPort) {
        problem = "the edge " + tail + " -- " + head + " needs a port at both ends, as \"" + tail +
                  "\":\"swp1\" -- \"" + head + "\":\"swp2\"";
        return false;
      }
      links.push_back({{tail, tailPort}, {head, headPort}});
    }
  }
  return true;
}

}  // namespace

std::optional<std::vector<ExpectedLink>> wiringOf(const std::string& dotText, std::string& error) {
  // Every graph of the file is read, to its end: a reader that stopped after the first would
  // check a part of the wiring and pass, and so would one that took a syntax error (or a
  // nesting too deep for the parser) for the end of the file. The parser reports errors through
  // its own channel; the level and the message it keeps are read below.
  agseterr(AGMAX);
  agseterrf([](char*) { return 0; });
  agreseterrors();
  MemoryChannel channel{dotText};
  // Editors on some systems start a UTF-8 file with a byte order mark, which the reader refuses.
  if (channel.text.starts_with("\xef\xbb\xbf")) channel.text.remove_prefix(3);
  Agiodisc_t io = AgIoDisc;
  io.afread = &readMemory;
  Agdisc_t disc{&AgMemDisc, &AgIdDisc, &io};
  std::vector<ExpectedLink> links;
  std::string problem;
  size_t graphs = 0;
  // Read to the end even after a problem: the reader keeps what it has buffered for the next call.
  while (Agraph_t* g = agread(&channel, &disc)) {
    ++graphs;
    if (problem.empty()) edgesOf(g, links, problem);
    agclose(g);
  }
  if (!problem.empty()) {
    error = problem;
    return std::nullopt;
  }
  if (agerrors() > AGWARN || graphs == 0) {
    char* why = aglasterr();  // the caller's to free
    error = "not a DOT graph" + std::string(why && agerrors() > AGWARN ? ": " + std::string(why) : "");
    std::free(why);
    while (!error.empty() && (error.back() == '\n' || error.back() == ' ')) error.pop_back();
    return std::nullopt;
  }
  return links;
}

}  // namespace Cli
