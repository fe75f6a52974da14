// Trace facility registry, level parsing, sinks and the ring trace.
#include "platform/Trace.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <map>

#include "platform/Text.h"

namespace Platform {

bool gAnyTraceEnabled = false;

namespace {

struct Registry {
  std::vector<TraceFacility*> facilities;
  std::map<std::string, int, std::less<>> levels;  // by facility name, "*" for all
  TraceSink sink;
  bool envRead = false;
};

Registry& registry() {
  static Registry r;
  return r;
}

void recountEnabled() {
  gAnyTraceEnabled = false;
  for (const TraceFacility* f : registry().facilities) gAnyTraceEnabled |= f->level() >= 0;
}

int levelFor(const Registry& r, std::string_view name) {
  if (auto it = r.levels.find(name); it != r.levels.end()) return it->second;
  if (auto it = r.levels.find("*"); it != r.levels.end()) return it->second;
  return -1;
}

bool parseLevels(std::string_view text, std::map<std::string, int, std::less<>>& out) {
  while (!text.empty()) {
    size_t comma = text.find(',');
    std::string_view item = text.substr(0, comma);
    text = comma == std::string_view::npos ? std::string_view{} : text.substr(comma + 1);
    if (item.empty()) continue;
    size_t slash = item.rfind('/');
    if (slash == std::string_view::npos || slash == 0) return false;
    std::string_view levelText = item.substr(slash + 1);
    int level = 0;
    auto [ptr, ec] = std::from_chars(levelText.data(), levelText.data() + levelText.size(), level);
    if (ec != std::errc{} || ptr != levelText.data() + levelText.size() || level < -1 || level > 9) {
      return false;
    }
    out[std::string(item.substr(0, slash))] = level;
  }
  return true;
}

void readEnvironmentOnce(Registry& r) {
  if (r.envRead) return;
  r.envRead = true;
  if (const char* env = std::getenv("LLDP_TRACE")) {
    std::map<std::string, int, std::less<>> levels;
    if (parseLevels(env, levels)) r.levels = std::move(levels);
  }
}

// Lines quote names and descriptions that neighbours sent: under a service manager standard
// error becomes the journal, where a newline in them would start a forged line.
void writeToStderr(const TraceFacility& facility, int level, std::string_view line) {
  const std::string shown = printable(line);
  std::fprintf(stderr, "%s/%d %.*s\n", facility.name(), level, static_cast<int>(shown.size()),
               shown.data());
}

}  // namespace

TraceFacility::TraceFacility(const char* name) : name_(name) {
  Registry& r = registry();
  readEnvironmentOnce(r);
  level_ = levelFor(r, name_);
  r.facilities.push_back(this);
  gAnyTraceEnabled |= level_ >= 0;
}

TraceFacility::~TraceFacility() {
  auto& f = registry().facilities;
  f.erase(std::remove(f.begin(), f.end(), this), f.end());
  recountEnabled();
}

void TraceFacility::levelIs(int level) {
  level_ = level;
  recountEnabled();
}

TraceSink traceSinkIs(TraceSink sink) {
  TraceSink old = std::move(registry().sink);
  registry().sink = std::move(sink);
  return old;
}

bool traceLevelsIs(std::string_view text) {
  Registry& r = registry();
  std::map<std::string, int, std::less<>> levels;
  if (!parseLevels(text, levels)) return false;
  r.levels = std::move(levels);
  for (TraceFacility* f : r.facilities) f->level_ = levelFor(r, f->name());
  recountEnabled();
  return true;
}

TraceLine::~TraceLine() {
  const std::string line = out_.str();
  const Registry& r = registry();
  if (r.sink) {
    r.sink(facility_, level_, line);
  } else {
    writeToStderr(facility_, level_, line);
  }
}

RingTrace::RingTrace() : lines_(kCapacity) {
  for (std::string& line : lines_) line.reserve(kLineBytes);
}

RingTrace& RingTrace::instance() {
  static RingTrace ring;
  return ring;
}

void RingTrace::add(std::string_view line) {
  lines_[next_].assign(line);
  next_ = (next_ + 1) % kCapacity;
  count_ = std::min(count_ + 1, kCapacity);
}

std::vector<std::string> RingTrace::entries() const {
  std::vector<std::string> out;
  out.reserve(count_);
  const size_t oldest = count_ < kCapacity ? 0 : next_;
  for (size_t i = 0; i < count_; ++i) out.push_back(lines_[(oldest + i) % kCapacity]);
  return out;
}

void RingTrace::dump(FILE* out) const {
  std::fprintf(out, "--- ring trace (%zu most recent events) ---\n", count_);
  for (const std::string& line : entries()) std::fprintf(out, "%s\n", printable(line).c_str());
}

void RingTrace::clear() {
  for (std::string& line : lines_) line.clear();
  next_ = 0;
  count_ = 0;
}

}  // namespace Platform
