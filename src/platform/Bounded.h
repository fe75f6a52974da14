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

// A heap byte string in one pointer: empty costs nothing, and the block is kept on clear() and
// reused by a later assign() that fits, so refilling a record allocates nothing.
class CompactBytes {
 public:
  CompactBytes() = default;
  CompactBytes(const CompactBytes& o) { assign(o.view()); }
  CompactBytes(CompactBytes&& o) noexcept : block_(o.block_) { o.block_ = nullptr; }
  CompactBytes& operator=(const CompactBytes& o) {
    if (this != &o) assign(o.view());
    return *this;
  }
  CompactBytes& operator=(CompactBytes&& o) noexcept {
    std::swap(block_, o.block_);
    return *this;
  }
  ~CompactBytes() { std::free(block_); }

  void assign(std::string_view v);
  void clear() {
    if (block_) block_->size = 0;
  }
  std::string_view view() const {
    // Never a null pointer, so that callers may copy zero bytes from it.
    return block_ ? std::string_view(bytesOf(block_), block_->size) : std::string_view("", 0);
  }

 private:
  struct Block {  // followed by `capacity` bytes
    uint32_t size;
    uint32_t capacity;
  };
  static char* bytesOf(Block* b) { return reinterpret_cast<char*>(b + 1); }
  Block* block_ = nullptr;
};

inline void CompactBytes::assign(std::string_view v) {
  if (v.empty()) {
    clear();
    return;
  }
  if (block_ && block_->capacity >= v.size()) {
    std::memmove(bytesOf(block_), v.data(), v.size());
    block_->size = static_cast<uint32_t>(v.size());
    return;
  }
  auto* fresh = static_cast<Block*>(std::malloc(sizeof(Block) + v.size()));
  if (!fresh) throw std::bad_alloc();
  std::memcpy(bytesOf(fresh), v.data(), v.size());
  fresh->size = fresh->capacity = static_cast<uint32_t>(v.size());
  std::free(block_);
  block_ = fresh;
}

// Bytes kept inside the object: for short values that are built often (addresses).
template <size_t N>
class InlineBytes {
 public:
  void assign(std::string_view v) {
    if (!v.empty()) std::memmove(bytes_, v.data(), v.size());
    size_ = static_cast<uint16_t>(v.size());
  }
  void clear() { size_ = 0; }
  std::string_view view() const { return std::string_view(bytes_, size_); }

 private:
  uint16_t size_ = 0;
  char bytes_[N];
};

// A byte string of at most Max bytes. Assigning an unchanged value allocates nothing.
template <FixedName Name, size_t Max, class Storage = CompactBytes>
class BoundedBytes {
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
