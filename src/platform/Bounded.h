// Bounded value types: byte strings and integers that refuse values beyond their bound with a
// std::range_error naming the type and the bound.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Platform {

// A literal usable as a template argument (the type's name in error texts).
template <size_t N>
struct FixedName {
  constexpr FixedName(const char (&s)[N]) { std::copy_n(s, N, text); }
  char text[N];
};

// A byte string in one word: up to 7 bytes inside the word itself; longer ones in a heap block
// that copies share (copy on write) and that clear() keeps for the next value, so refilling a
// record with values of the same size allocates nothing.
class CompactBytes {
 public:
  CompactBytes() noexcept { setSmall(0); }
  CompactBytes(const CompactBytes& o) noexcept {
    std::memcpy(raw_, o.raw_, sizeof raw_);
    if (Block* b = block()) ++b->refs;
  }
  CompactBytes(CompactBytes&& o) noexcept {
    std::memcpy(raw_, o.raw_, sizeof raw_);
    o.setSmall(0);
  }
  CompactBytes& operator=(const CompactBytes& o) noexcept {
    CompactBytes copy(o);
    swap(copy);
    return *this;
  }
  CompactBytes& operator=(CompactBytes&& o) noexcept {
    swap(o);
    return *this;
  }
  ~CompactBytes() { release(); }

  void assign(std::string_view v);
  void clear();
  std::string_view view() const {
    if (const Block* b = block()) return std::string_view(reinterpret_cast<const char*>(b + 1), b->size);
    return std::string_view(reinterpret_cast<const char*>(raw_ + 1), raw_[0] >> 1);
  }

 private:
  struct Block {  // followed by `capacity` bytes
    uint32_t refs;
    uint16_t size;
    uint16_t capacity;
  };
  static constexpr size_t kSmallMax = 7;

  // A heap pointer is even; a small value has bit 0 of the first byte set and its size above.
  Block* block() const {
    if (raw_[0] & 1) return nullptr;
    Block* b;
    std::memcpy(&b, raw_, sizeof b);
    return b;
  }
  void setSmall(size_t size) { raw_[0] = static_cast<unsigned char>(size << 1 | 1); }
  void setBlock(Block* b) { std::memcpy(raw_, &b, sizeof b); }
  void swap(CompactBytes& o) noexcept {
    unsigned char t[sizeof raw_];
    std::memcpy(t, raw_, sizeof raw_);
    std::memcpy(raw_, o.raw_, sizeof raw_);
    std::memcpy(o.raw_, t, sizeof raw_);
  }
  void release() {
    Block* b = block();
    if (b && --b->refs == 0) std::free(b);
    setSmall(0);
  }

  alignas(void*) unsigned char raw_[sizeof(void*)];
};
static_assert(sizeof(CompactBytes) == sizeof(void*));

inline void CompactBytes::assign(std::string_view v) {
  Block* b = block();
  if (b && b->refs == 1 && b->capacity >= v.size()) {
    if (!v.empty()) std::memmove(b + 1, v.data(), v.size());
    b->size = static_cast<uint16_t>(v.size());
    return;
  }
  if (v.size() <= kSmallMax) {
    unsigned char bytes[kSmallMax];
    if (!v.empty()) std::memcpy(bytes, v.data(), v.size());  // v may point into this value
    release();
    if (!v.empty()) std::memcpy(raw_ + 1, bytes, v.size());
    setSmall(v.size());
    return;
  }
  auto* fresh = static_cast<Block*>(std::malloc(sizeof(Block) + v.size()));
  if (!fresh) throw std::bad_alloc();
  std::memcpy(fresh + 1, v.data(), v.size());
  fresh->refs = 1;
  fresh->size = fresh->capacity = static_cast<uint16_t>(v.size());
  release();
  setBlock(fresh);
}

inline void CompactBytes::clear() {
  Block* b = block();
  if (b && b->refs == 1) {
    b->size = 0;
    return;
  }
  release();
}

// A byte string of at most Max bytes. Assigning an unchanged value allocates nothing.
template <FixedName Name, size_t Max, class Storage = CompactBytes>
class BoundedBytes {
  static_assert(Max <= 0xffff, "compact storage holds at most 65535 bytes");

 public:
  static constexpr size_t kMax = Max;

  BoundedBytes() = default;
  BoundedBytes(std::string_view value) { value_.assign(checked(value)); }
  BoundedBytes(const char* value) : BoundedBytes(std::string_view(value)) {}
  BoundedBytes(const std::string& value) : BoundedBytes(std::string_view(value)) {}
  BoundedBytes(const uint8_t* data, size_t size)
      : BoundedBytes(std::string_view(reinterpret_cast<const char*>(data), size)) {}

  BoundedBytes& operator=(std::string_view value) {
    value_.assign(checked(value));
    return *this;
  }
  BoundedBytes& operator=(const char* value) { return *this = std::string_view(value); }
  BoundedBytes& operator=(const std::string& value) { return *this = std::string_view(value); }
  // The longest prefix that fits: writers clip received values instead of failing.
  static BoundedBytes clipped(std::string_view value) {
    return BoundedBytes(value.substr(0, std::min(value.size(), Max)));
  }

  std::string_view view() const { return value_.view(); }
  std::string str() const { return std::string(view()); }
  const uint8_t* data() const { return reinterpret_cast<const uint8_t*>(view().data()); }
  size_t size() const { return view().size(); }
  bool empty() const { return view().empty(); }
  void clear() { value_.clear(); }

  bool operator==(const BoundedBytes& o) const { return view() == o.view(); }
  bool operator==(std::string_view o) const { return view() == o; }
  bool operator==(const char* o) const { return view() == o; }
  bool operator==(const std::string& o) const { return view() == o; }
  auto operator<=>(const BoundedBytes& o) const { return view() <=> o.view(); }

 private:
  static std::string_view checked(std::string_view value) {
    if (value.size() > Max) {
      throw std::range_error(std::string(Name.text) + "::value::bytes > " + std::to_string(Max) +
                             " not allowed");
    }
    return value;
  }
  Storage value_;
};

template <FixedName Name, size_t Max, class S>
std::ostream& operator<<(std::ostream& os, const BoundedBytes<Name, Max, S>& v) {
  return os << v.view();
}

// An integer in [Min, Max]; out-of-range values raise "Name::value < Min not allowed" or
// "Name::value > Max not allowed".
template <FixedName Name, class T, T Min, T Max>
class BoundedInt {
 public:
  constexpr BoundedInt() : value_(Min) {}
  BoundedInt(T value) : value_(checked(value)) {}

  T value() const { return value_; }
  operator T() const { return value_; }
  auto operator<=>(const BoundedInt&) const = default;

 private:
  static T checked(T value) {
    if (value < Min) {
      throw std::range_error(std::string(Name.text) + "::value < " + std::to_string(Min) +
                             " not allowed");
    }
    if (value > Max) {
      throw std::range_error(std::string(Name.text) + "::value > " + std::to_string(Max) +
                             " not allowed");
    }
    return value;
  }
  T value_;
};

}  // namespace Platform
