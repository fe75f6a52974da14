// TOML configuration file: parse with toml++, walk every leaf through the key table, write back
// through a temporary file.
#include "daemon/ConfigFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <climits>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <toml++/toml.h>

#include "daemon/ConfigEdit.h"

namespace Daemon {
namespace {

struct Walker {
  const std::string& source;
  Settings settings;
  std::vector<std::pair<uint32_t, std::string>> errors;  // by line, for the report
  std::map<std::string, uint32_t> lines;                 // global keys as written, by line

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
    if (intf.empty()) {
      if (const auto match = ConfigSchema::find(ConfigScope::global, key)) lines[match->key->key] = node.source().begin.line;
    }
    // Rules between keys are checked once the whole file is read, whatever the keys' order.
    if (auto failure = ConfigSchema::set(settings, intf, key, *value, false)) error(node, "", failure->text());
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
  Walker walker{sourceName, Settings{}, {}, {}};
  walker.walk(root, "", "");
  if (walker.errors.empty()) {
    // Named at the hold time's line, or the interval's when the hold time is the default.
    const bool holdGiven = walker.lines.contains("hold-time");
    if (auto error = ConfigSchema::checkTogether(walker.settings, holdGiven ? "hold-time" : "transmit-interval")) {
      const auto line = walker.lines.find(error->key);
      const uint32_t at = line == walker.lines.end() ? 1 : line->second;
      walker.errors.emplace_back(at, sourceName + ":" + std::to_string(at) + ": " + error->text());
    }
  }
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

namespace {

std::string errnoText(const std::string& what) { return what + ": " + std::strerror(errno); }

// The file a path names, through any symbolic links (the link stays a link); "" when the links
// go round.
std::string resolvedPath(std::string path) {
  for (int hops = 0; hops < 40; ++hops) {
    struct stat st{};
    if (::lstat(path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return path;
    std::string target(PATH_MAX, '\0');
    const ssize_t n = ::readlink(path.c_str(), target.data(), target.size());
    if (n <= 0) return path;
    target.resize(static_cast<size_t>(n));
    if (target.front() != '/') {
      const size_t slash = path.rfind('/');
      target = (slash == std::string::npos ? std::string() : path.substr(0, slash + 1)) + target;
    }
    path = std::move(target);
  }
  return {};
}

bool writeAll(int fd, const std::string& text) {
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

std::string saveConfigFile(const std::string& path, const Settings& settings, std::string* note) {
  const std::string file = resolvedPath(path);
  if (file.empty()) return path + ": too many levels of symbolic links";
  // What the file is now: its text to edit, and the owner, group and mode to keep.
  struct stat st{};
  const bool exists = ::stat(file.c_str(), &st) == 0;
  if (!exists && errno != ENOENT) return errnoText(file);
  if (exists && !S_ISREG(st.st_mode)) return file + ": not a regular file";
  std::string original;
  if (exists) {
    std::ifstream in(file, std::ios::binary);
    if (!in) return errnoText(file);
    original.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  std::string saidNote;
  const std::string text = editConfigText(original, settings, saidNote);
  if (note) *note = saidNote;

  const size_t slash = file.rfind('/');
  const std::string dir = slash == std::string::npos ? "." : slash == 0 ? "/" : file.substr(0, slash);
  const std::string temp = dir + "/." + file.substr(slash + 1) + ".tmp." + std::to_string(::getpid());
  // For the owner alone until it has the file's own owner, group and mode.
  const int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (fd < 0) return errnoText(temp);
  const auto failed = [&](const std::string& error) {
    ::close(fd);
    ::unlink(temp.c_str());
    return error;
  };
  if (!writeAll(fd, text)) return failed(errnoText(temp));
  mode_t mode = 0644;
  if (exists) {
    struct stat made{};
    if (::fstat(fd, &made) != 0) return failed(errnoText(temp));
    if ((made.st_uid != st.st_uid || made.st_gid != st.st_gid) && ::fchown(fd, st.st_uid, st.st_gid) != 0) {
      const int why = errno;
      const std::string refusal = errnoText(file + ": cannot keep its owner " + std::to_string(st.st_uid) +
                                            " and group " + std::to_string(st.st_gid) + " (the file is left as it was)");
      // The service runs in its own group without CAP_CHOWN: a new file cannot be given back a
      // root:root file's group. The file can still be written where it lies, which keeps its
      // owner, group and mode; the whole text is on disk beside it first, should that be cut short.
      const int target = why == EPERM ? ::open(file.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW) : -1;
      if (target < 0) return failed(refusal);
      if (::fsync(fd) != 0) {
        ::close(target);
        return failed(errnoText(temp));
      }
      const bool written = writeAll(target, text) && ::ftruncate(target, static_cast<off_t>(text.size())) == 0 &&
                           ::fsync(target) == 0;
      const std::string error = written ? std::string() : errnoText(file);
      ::close(target);
      ::close(fd);
      if (!written) return error + " (written in part; the whole text is in " + temp + ")";
      ::unlink(temp.c_str());
      return {};
    }
    mode = st.st_mode & 07777;
  } else {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    mode &= ~mask;
  }
  if (::fchmod(fd, mode) != 0) return failed(errnoText(temp));
  // The data on disk before the rename makes it the configuration.
  if (::fsync(fd) != 0) return failed(errnoText(temp));
  if (::close(fd) != 0) {
    ::unlink(temp.c_str());
    return errnoText(temp);
  }
  if (::rename(temp.c_str(), file.c_str()) != 0) {
    const std::string error = errnoText(file);
    ::unlink(temp.c_str());
    return error;
  }
  // And the rename on disk too, or a crash may bring the old file back.
  const int dirFd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dirFd < 0 || ::fsync(dirFd) != 0) {
    const std::string error = errnoText(dir + ": the file is written but the directory could not be synced");
    if (dirFd >= 0) ::close(dirFd);
    return error;
  }
  ::close(dirFd);
  return {};
}

}  // namespace Daemon
