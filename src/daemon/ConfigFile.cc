// TOML configuration file: parse with toml++, walk every leaf through the key table, write back
// through a temporary file.
#include "daemon/ConfigFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <toml++/toml.h>

namespace Daemon {
namespace {

struct Walker {
  const std::string& source;
  Settings settings;
  std::vector<std::pair<uint32_t, std::string>> errors;  // by line, for the report

  void error(const toml::node& node, const std::string& key, const std::string& message) {
    std::ostringstream text;
    text << source << ":" << node.source().begin.line << ": " << (key.empty() ? "" : key + ": ") << message;
    errors.emplace_back(node.source().begin.line, text.str());
  }

  std::optional<ConfigValue> valueOf(const toml::node& node, const std::string& label) {
    if (auto v = node.as_boolean()) return ConfigValue(v->get());
    if (auto v = node.as_integer()) return ConfigValue(static_cast<int64_t>(v->get()));
    if (auto v = node.as_floating_point()) return ConfigValue(v->get());
    if (auto v = node.as_string()) return ConfigValue(v->get());
    if (auto array = node.as_array()) {
      std::vector<std::string> items;
      for (const toml::node& item : *array) {
        const auto* text = item.as_string();
        if (!text) {
          error(item, label, "expects a list of texts");
          return std::nullopt;
        }
        items.push_back(text->get());
      }
      return ConfigValue(std::move(items));
    }
    error(node, label, "dates and times are not configuration values");
    return std::nullopt;
  }

  void leaf(const toml::node& node, const std::string& intf, const std::string& key) {
    const std::string label = intf.empty() ? key : "interface." + intf + "." + key;
    const auto value = valueOf(node, label);
    if (!value) return;
    if (auto failure = ConfigSchema::set(settings, intf, key, *value)) error(node, "", failure->text());
  }

  void walk(const toml::table& table, const std::string& intf, const std::string& prefix) {
    for (const auto& [name, node] : table) {
      const std::string key = prefix + std::string(name.str());
      if (const auto* sub = node.as_table()) {
        if (intf.empty() && key == "interface") {
          walkInterfaces(*sub);
          continue;
        }
        walk(*sub, intf, key + ".");
        continue;
      }
      if (intf.empty() && key == "interface") {
        error(node, key, "expects a table of interface sections, as [interface.\"eth1\"]");
        continue;
      }
      leaf(node, intf, key);
    }
  }

  void walkInterfaces(const toml::table& interfaces) {
    for (const auto& [name, node] : interfaces) {
      const std::string intf(name.str());
      const std::string label = "interface." + intf;
      if (!ConfigSchema::validIntfName(intf)) {
        error(node, label, "'" + intf + "' is not an interface name (1 to 15 bytes, no spaces or /)");
        continue;
      }
      const auto* section = node.as_table();
      if (!section) {
        error(node, label, "expects a table of interface keys");
        continue;
      }
      settings.ports[intf];  // an empty section still makes a port entry
      walk(*section, intf, "");
    }
  }
};

}  // namespace

ConfigLoad parseConfig(std::string_view text, const std::string& sourceName) {
  ConfigLoad load;
  if (text.size() > kMaxConfigBytes) {
    load.errors.push_back(sourceName + ": the file is larger than " + std::to_string(kMaxConfigBytes) + " bytes");
    return load;
  }
  toml::table root;
  try {
    root = toml::parse(text, sourceName);
  } catch (const toml::parse_error& e) {
    std::ostringstream message;
    message << sourceName << ":" << e.source().begin.line << ": " << e.description();
    load.errors.push_back(message.str());
    return load;
  }
  Walker walker{sourceName, Settings{}, {}};
  walker.walk(root, "", "");
  if (!walker.errors.empty()) {
    // Tables are walked in key order; people read a report in line order.
    std::stable_sort(walker.errors.begin(), walker.errors.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    for (auto& [line, message] : walker.errors) {
      if (load.errors.size() == kMaxReportedErrors) break;
      load.errors.push_back(std::move(message));
    }
    return load;
  }
  load.settings = std::move(walker.settings);
  return load;
}

ConfigLoad loadConfigFile(const std::string& path, bool missingIsDefault) {
  ConfigLoad load;
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    const int err = errno;
    if (err == ENOENT && missingIsDefault) {
      load.missing = true;
      load.settings = Settings{};
      return load;
    }
    load.errors.push_back(path + ": " + std::strerror(err));
    return load;
  }
  std::string text;
  char buf[65536];
  while (in.read(buf, sizeof buf) || in.gcount() > 0) {
    text.append(buf, static_cast<size_t>(in.gcount()));
    if (text.size() > kMaxConfigBytes) break;  // parseConfig reports the size
  }
  if (in.bad()) {
    load.errors.push_back(path + ": read error");
    return load;
  }
  return parseConfig(text, path);
}

std::string saveConfigFile(const std::string& path, const Settings& settings) {
  const std::string text = ConfigSchema::renderToml(settings);
  const std::string temp = path + ".tmp." + std::to_string(::getpid());
  const int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return temp + ": " + std::strerror(errno);
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      const std::string error = temp + ": " + std::strerror(errno);
      ::close(fd);
      ::unlink(temp.c_str());
      return error;
    }
    done += static_cast<size_t>(n);
  }
  // The data must be on disk before the rename makes it the configuration.
  if (::fsync(fd) != 0 || ::close(fd) != 0) {
    const std::string error = temp + ": " + std::strerror(errno);
    ::unlink(temp.c_str());
    return error;
  }
  if (::rename(temp.c_str(), path.c_str()) != 0) {
    const std::string error = path + ": " + std::strerror(errno);
    ::unlink(temp.c_str());
    return error;
  }
  return {};
}

}  // namespace Daemon
