// Intrusive reference counting for state entities: Ptr<T> and Ptr<const T>.
#pragma once

#include <cstdint>
#include <functional>
#include <utility>

namespace Platform {

class RefCounted {
 public:
  RefCounted() = default;
  RefCounted(const RefCounted&) {}
  RefCounted& operator=(const RefCounted&) { return *this; }

  void ref() const { ++refs_; }
  void unref() const {
    if (--refs_ == 0) delete this;
  }
  uint32_t refCount() const { return refs_; }

 protected:
  virtual ~RefCounted() = default;

 private:
  mutable uint32_t refs_ = 0;
};

template <class T>
class Ptr {
 public:
  Ptr() = default;
  Ptr(std::nullptr_t) {}
  explicit Ptr(T* p) : p_(p) {
    if (p_) p_->ref();
  }
  Ptr(const Ptr& o) : Ptr(o.p_) {}
  Ptr(Ptr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
  template <class U>
  Ptr(const Ptr<U>& o) : Ptr(o.get()) {}
  template <class U>
  Ptr(Ptr<U>&& o) noexcept : p_(o.release()) {}
  ~Ptr() {
    if (p_) p_->unref();
  }

  Ptr& operator=(Ptr o) noexcept {
    std::swap(p_, o.p_);
    return *this;
  }

  T* get() const { return p_; }
  T* operator->() const { return p_; }
  T& operator*() const { return *p_; }
  explicit operator bool() const { return p_ != nullptr; }
  T* release() { return std::exchange(p_, nullptr); }

  template <class U>
  bool operator==(const Ptr<U>& o) const {
    return p_ == o.get();
  }
  bool operator==(std::nullptr_t) const { return p_ == nullptr; }

 private:
  T* p_ = nullptr;
};

template <class T, class... Args>
Ptr<T> make(Args&&... args) {
  return Ptr<T>(new T(std::forward<Args>(args)...));
}

template <class T, class U>
Ptr<T> ptrCast(const Ptr<U>& p) {
  return Ptr<T>(dynamic_cast<T*>(p.get()));
}

}  // namespace Platform

template <class T>
struct std::hash<Platform::Ptr<T>> {
  size_t operator()(const Platform::Ptr<T>& p) const { return std::hash<T*>()(p.get()); }
};
