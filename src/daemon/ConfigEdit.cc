// Editing the configuration file's text: its TOML is read with the source positions of every
// key and value, each key is named as the key table knows it, and only the keys whose values
// differ from the new settings are replaced, removed or added. The result is loaded back and
// compared; anything it would get wrong is written anew instead.
#include "daemon/ConfigEdit.h"

#include <algorithm>
#include <map>
#include <optional>
#include <toml++/toml.h>
#include <vector>

#include "daemon/ConfigFile.h"
#include "daemon/ConfigKeys.h"

namespace Daemon {
namespace {

using Path = std::vector<std::string>;

// One key as the settings have it, named "INTERFACE|canonical.key" ("|key" when global).
struct Leaf {
  std::string intf;
  std::string key;  // canonical, parameters filled in
  std::optional<ConfigValue> value;
};

struct FileLeaf {
  Path path;  // the TOML path, interface section included
  toml::source_region keyAt;
  toml::source_region valueAt;
  bool inInlineTable = false;
};

struct Edit {
  uint32_t line;  // lines counted from 1; an insertion goes after it (0: at the top)
  uint32_t column = 0, endLine = 0, endColumn = 0;
  enum class Kind { replace, remove, insert } kind;
  std::vector<std::string> text;  // replace: one string; insert: lines
  size_t order = 0;
};

std::string canonicalKey(const ConfigKey& key, const ConfigKeyParams& p) {
  std::string out;
  for (const char* c = key.key; *c;) {
    if (*c != '<') {
      out += *c++;
      continue;
    }
    const std::string_view rest(c);
    const size_t close = rest.find('>');
    const std::string_view name = rest.substr(0, close + 1);
    if (name == "<app>") out += std::to_string(p.app);
    if (name == "<oui>") out += ouiText(p.oui);
    if (name == "<subtype>") out += std::to_string(p.subtype);
    if (name == "<index>") out += std::to_string(p.index);
    c += close + 1;
  }
  return out;
}

std::string idOf(const std::string& intf, const std::string& key) { return intf + "|" + key; }

// Every key the settings hold (optional ones unset as no value), by id; order, when given, gets
// the ids in the key table's order.
std::map<std::string, Leaf> leavesOf(const Settings& s, std::vector<std::string>* order = nullptr) {
  std::map<std::string, Leaf> out;
  const auto add = [&](const std::string& id, Leaf leaf) {
    if (order) order->push_back(id);
    out[id] = std::move(leaf);
  };
  for (const ConfigKey& key : ConfigSchema::keys()) {
    if (key.scope != ConfigScope::global) continue;
    add(idOf("", key.key), {"", key.key, key.get(s, nullptr, {})});
  }
  for (const auto& [intf, port] : s.ports) {
    for (const ConfigKey& key : ConfigSchema::keys()) {
      if (key.scope != ConfigScope::port) continue;
      const std::string_view pattern = key.key;
      std::vector<ConfigKeyParams> all;
      if (pattern.find("<app>") != std::string_view::npos) {
        for (const auto& [app, policy] : port.networkPolicy) all.push_back({app, 0, 0, 1});
      } else if (pattern.find("<oui>") != std::string_view::npos) {
        for (const auto& [tlv, bytes] : port.externalTlv) all.push_back({0, tlv.oui().value, tlv.subtype(), tlv.index()});
      } else {
        all.push_back({});
      }
      for (const ConfigKeyParams& params : all) {
        const std::string name = canonicalKey(key, params);
        add(idOf(intf, name), {intf, name, key.get(s, &port, params)});
      }
    }
  }
  return out;
}

Path split(const std::string& dotted) {
  Path out;
  size_t start = 0;
  for (size_t dot; (dot = dotted.find('.', start)) != std::string::npos; start = dot + 1) {
    out.push_back(dotted.substr(start, dot - start));
  }
  out.push_back(dotted.substr(start));
  return out;
}

// A key segment as TOML writes it: bare when it can be, quoted otherwise.
std::string segment(const std::string& s) {
  const bool bare = !s.empty() && std::all_of(s.begin(), s.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
  });
  return bare ? s : ConfigSchema::renderValue(ConfigValue(s));
}

std::string joined(const Path& path, size_t from) {
  std::string out;
  for (size_t i = from; i < path.size(); ++i) out += (i > from ? "." : "") + segment(path[i]);
  return out;
}

Path leafPath(const Leaf& leaf) {
  Path path = split(leaf.key);
  if (!leaf.intf.empty()) path.insert(path.begin(), {"interface", leaf.intf});
  return path;
}

class Editor {
 public:
  Editor(std::string_view original, const Settings& fileSettings) : file_(fileSettings) {
    size_t start = 0;
    while (start <= original.size()) {
      const size_t end = original.find('\n', start);
      if (end == std::string_view::npos) {
        if (start < original.size()) lines_.emplace_back(original.substr(start));
        break;
      }
      lines_.emplace_back(original.substr(start, end - start));
      start = end + 1;
    }
    root_ = toml::parse(original, std::string_view("config"));
    walk(root_, {}, "", "", false);
  }

  // False with why set when a change cannot be made in place.
  bool editTo(const Settings& target, std::string& why) {
    std::vector<std::string> ids;
    const auto want = leavesOf(target, &ids);
    const auto had = leavesOf(file_);
    Settings blank;
    for (const auto& [intf, port] : target.ports) blank.ports[intf];
    const auto defaults = leavesOf(blank);
    // The target's keys in the key table's order (so that added keys read as the table has
    // them), then those it no longer has.
    for (const auto& [id, leaf] : had) {
      if (!want.contains(id)) ids.push_back(id);
    }
    for (const auto& [id, leaf] : inFile_) {
      if (!want.contains(id) && !had.contains(id)) ids.push_back(id);
    }
    std::map<std::string, std::vector<const Leaf*>> newSections;
    for (const std::string& id : ids) {
      const auto w = want.find(id);
      const auto h = had.find(id);
      const std::optional<ConfigValue> wanted = w == want.end() ? std::nullopt : w->second.value;
      const std::optional<ConfigValue> present = h == had.end() ? std::nullopt : h->second.value;
      const auto text = inFile_.find(id);
      if (wanted == present) continue;
      if (text != inFile_.end()) {
        if (!(wanted ? replace(text->second, *wanted, why) : remove(text->second, why))) return false;
        continue;
      }
      if (!wanted) continue;  // a default that no line states
      if (!w->second.intf.empty() && !file_.ports.contains(w->second.intf)) {
        // A new section states what differs from an interface's defaults.
        if (const auto d = defaults.find(id); d == defaults.end() || d->second.value != wanted) {
          newSections[w->second.intf].push_back(&w->second);
        }
        continue;
      }
      insert(w->second);
    }
    for (const auto& [intf, port] : file_.ports) {
      if (!target.ports.contains(intf)) removeHeaders(intf);
    }
    for (const auto& [intf, leaves] : newSections) {
      std::vector<std::string> section = {"", "[interface." + ConfigSchema::renderValue(ConfigValue(intf)) + "]"};
      for (const Leaf* leaf : leaves) section.push_back(joined(split(leaf->key), 0) + " = " + ConfigSchema::renderValue(*leaf->value));
      edits_.push_back({static_cast<uint32_t>(lines_.size()), 0, 0, 0, Edit::Kind::insert, std::move(section)});
    }
    // An interface with no key left keeps its section header, or gets one.
    for (const auto& [intf, port] : target.ports) {
      if (!file_.ports.contains(intf) && !newSections.contains(intf)) {
        edits_.push_back({static_cast<uint32_t>(lines_.size()), 0, 0, 0, Edit::Kind::insert,
                          {"", "[interface." + ConfigSchema::renderValue(ConfigValue(intf)) + "]"}});
      }
    }
    return true;
  }

  std::string text() {
    // From the bottom up, so that each edit's line numbers still hold; insertions after a line
    // before the edits of that line; of two insertions at one place, the later first, so that
    // it ends up below.
    for (size_t i = 0; i < edits_.size(); ++i) edits_[i].order = i;
    std::sort(edits_.begin(), edits_.end(), [](const Edit& a, const Edit& b) {
      const auto rank = [](const Edit& e) {
        return std::pair(e.kind == Edit::Kind::insert ? e.line * 2 + 1 : e.line * 2, e.order);
      };
      return rank(a) > rank(b);
    });
    for (const Edit& e : edits_) {
      switch (e.kind) {
        case Edit::Kind::insert:
          lines_.insert(lines_.begin() + e.line, e.text.begin(), e.text.end());
          break;
        case Edit::Kind::remove:
          lines_.erase(lines_.begin() + (e.line - 1), lines_.begin() + e.endLine);
          break;
        case Edit::Kind::replace: {
          const std::string head = lines_[e.line - 1].substr(0, e.column - 1);
          const std::string tail = lines_[e.endLine - 1].substr(e.endColumn - 1);
          lines_.erase(lines_.begin() + e.line, lines_.begin() + e.endLine);
          lines_[e.line - 1] = head + e.text.front() + tail;
          break;
        }
      }
    }
    std::string out;
    for (const std::string& line : lines_) out += line + "\n";
    return out;
  }

 private:
  void walk(const toml::table& table, const Path& path, const std::string& intf, const std::string& prefix,
            bool inInline) {
    if (!path.empty() && !table.is_inline()) {
      const auto& at = table.source().begin;
      if (at.line >= 1 && at.line <= lines_.size() && at.column >= 1 && lines_[at.line - 1].size() >= at.column &&
          lines_[at.line - 1][at.column - 1] == '[') {
        headers_[at.line] = path;  // the deepest table of the header line is the one it names
      }
    }
    for (const auto& [name, node] : table) {
      Path here = path;
      here.emplace_back(name.str());
      if (const auto* sub = node.as_table()) {
        const bool isInline = inInline || sub->is_inline();
        if (path.empty() && name.str() == "interface") {
          for (const auto& [intfName, section] : *sub) {
            Path at = here;
            at.emplace_back(intfName.str());
            if (const auto* s = section.as_table()) walk(*s, at, std::string(intfName.str()), "", isInline || s->is_inline());
          }
          recordHeader(*sub, here);
          continue;
        }
        walk(*sub, here, intf, prefix + std::string(name.str()) + ".", isInline);
        continue;
      }
      const std::string written = prefix + std::string(name.str());
      const auto match = ConfigSchema::find(intf.empty() ? ConfigScope::global : ConfigScope::port, written);
      if (!match) continue;
      inFile_[idOf(intf, canonicalKey(*match->key, match->params))] =
          FileLeaf{here, name.source(), node.source(), inInline};
    }
  }
  void recordHeader(const toml::table& table, const Path& path) {
    const auto& at = table.source().begin;
    if (table.is_inline() || at.line < 1 || at.line > lines_.size() || at.column < 1) return;
    const std::string& line = lines_[at.line - 1];
    if (line.size() >= at.column && line[at.column - 1] == '[' && !headers_.contains(at.line)) headers_[at.line] = path;
  }

  // Whether the key and its value are lines of their own. A dotted key's region is its last
  // part's: only other parts may come before it.
  bool alone(const FileLeaf& leaf) const {
    if (leaf.inInlineTable || leaf.keyAt.begin.column < 1) return false;
    const std::string& first = lines_[leaf.keyAt.begin.line - 1];
    if (first.substr(0, leaf.keyAt.begin.column - 1).find_first_of("=,{[") != std::string::npos) return false;
    const std::string& last = lines_[leaf.valueAt.end.line - 1];
    const size_t after = last.find_first_not_of(" \t", leaf.valueAt.end.column - 1);
    return after == std::string::npos || last[after] == '#';
  }

  bool replace(const FileLeaf& leaf, const ConfigValue& value, std::string& why) {
    const auto& b = leaf.valueAt.begin;
    const auto& e = leaf.valueAt.end;
    if (b.line < 1 || e.line > lines_.size() || b.column < 1 || e.column < 1) {
      why = "a value whose place in the file is unknown";
      return false;
    }
    edits_.push_back({b.line, b.column, e.line, e.column, Edit::Kind::replace, {ConfigSchema::renderValue(value)}});
    return true;
  }

  bool remove(const FileLeaf& leaf, std::string& why) {
    if (!alone(leaf)) {
      why = "a key to remove shares its line with others";
      return false;
    }
    edits_.push_back({leaf.keyAt.begin.line, 0, leaf.valueAt.end.line, 0, Edit::Kind::remove, {}});
    return true;
  }

  void removeHeaders(const std::string& intf) {
    for (const auto& [line, path] : headers_) {
      if (path.size() >= 2 && path[0] == "interface" && path[1] == intf) {
        edits_.push_back({line, 0, line, 0, Edit::Kind::remove, {}});
      }
    }
  }

  // Where a key goes: in the deepest table that a header names and that holds it, after that
  // table's last key; as a dotted key relative to it.
  void insert(const Leaf& leaf) {
    const Path path = leafPath(leaf);
    uint32_t header = 0;
    size_t depth = 0;
    for (const auto& [line, tablePath] : headers_) {
      if (tablePath.size() < path.size() && tablePath.size() >= depth &&
          std::equal(tablePath.begin(), tablePath.end(), path.begin())) {
        header = line;
        depth = tablePath.size();
      }
    }
    const auto next = headers_.upper_bound(header);
    const uint32_t regionEnd = next == headers_.end() ? static_cast<uint32_t>(lines_.size()) : next->first - 1;
    uint32_t anchor = header;
    bool found = false;
    for (const auto& [id, fileLeaf] : inFile_) {
      const uint32_t line = fileLeaf.keyAt.begin.line;
      if (line > header && line <= regionEnd) {
        anchor = std::max(anchor, static_cast<uint32_t>(fileLeaf.valueAt.end.line));
        found = true;
      }
    }
    if (!found && header == 0) {
      // Keys at the top of a file that has none yet: before the first section and the comments
      // that lead into it, or at the end.
      anchor = regionEnd;
      if (next != headers_.end()) {
        while (anchor > 0 && lines_[anchor - 1].find_first_not_of(" \t") != std::string::npos &&
               lines_[anchor - 1][lines_[anchor - 1].find_first_not_of(" \t")] == '#') {
          --anchor;
        }
      }
    }
    const std::string line = joined(path, depth) + " = " + ConfigSchema::renderValue(*leaf.value);
    for (Edit& e : edits_) {
      if (e.kind == Edit::Kind::insert && e.line == anchor) {
        e.text.push_back(line);
        return;
      }
    }
    edits_.push_back({anchor, 0, 0, 0, Edit::Kind::insert, {line}});
  }

  const Settings& file_;
  std::vector<std::string> lines_;
  toml::table root_;
  std::map<uint32_t, Path> headers_;  // header lines and the table each names
  std::map<std::string, FileLeaf> inFile_;
  std::vector<Edit> edits_;
};

}  // namespace

std::string editConfigText(std::string_view original, const Settings& target, std::string& note) {
  note.clear();
  const std::string fresh = ConfigSchema::renderToml(target);
  if (original.empty()) return fresh;
  const ConfigLoad load = parseConfig(original, "config");
  if (!load.ok()) {
    note = "the file had errors, so it was written anew from the running configuration; its comments are gone";
    return fresh;
  }
  std::string why;
  try {
    Editor editor(original, *load.settings);
    if (editor.editTo(target, why)) {
      std::string edited = editor.text();
      const ConfigLoad check = parseConfig(edited, "config");
      if (check.ok() && *check.settings == target) return edited;
      why = check.ok() ? "an edit would have changed another setting" : check.errors.front();
    }
  } catch (const std::exception& e) {
    why = e.what();
  }
  note = "the file was written anew from the running configuration and its comments are gone: its keys could not be "
         "edited in place (" + why + ")";
  return fresh;
}

}  // namespace Daemon
