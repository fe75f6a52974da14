// Small records and reactors that exercise the framework in tests.
#pragma once

#include <string>
#include <vector>

#include "platform/Reactor.h"
#include "platform/Record.h"

namespace PlatformTest {

class Child : public Platform::Entity {
#define TEST_CHILD_ATTRS(X)   \
  X(Meta, key, int, {})       \
  X(Attr, label, std::string, {})
  PLATFORM_RECORD(Child, TEST_CHILD_ATTRS)
 public:
  explicit Child(int key, std::string label = {}) : key_(key), label_(std::move(label)) {}
};

class Widget : public Platform::Entity {
#define TEST_WIDGET_ATTRS(X)                       \
  X(Meta, id, int, {7})                            \
  X(Attr, name, std::string, {})                   \
  X(Attr, size, uint32_t, {3})                     \
  X(Counter, hits, uint32_t, {})                   \
  X(Counter, index, int32_t, {})                   \
  X(Coll, tag, int, std::string)                   \
  X(HashColl, label, std::string, int)             \
  X(EntColl, child, int, Child)
  PLATFORM_RECORD(Widget, TEST_WIDGET_ATTRS)
 public:
  Widget() = default;
};

// A record with values most instances leave at their default.
class Sparse : public Platform::Entity {
#define TEST_SPARSE_ATTRS(X)              \
  X(Attr, name, std::string, {})          \
  X(Rare, level, uint32_t, {5})           \
  X(RareColl, note, int, std::string)     \
  X(Rare, label, std::string, {})
  PLATFORM_RECORD(Sparse, TEST_SPARSE_ATTRS)
 public:
  Sparse() = default;
  bool rareAllocated() const { return rare_.get() != nullptr; }
};

// Records every notification of a Sparse, e.g. "level=6" or "note:2 added".
class SparseRecorder : public Platform::Reactor {
 public:
  explicit SparseRecorder(Sparse::Ptr s) : s_(std::move(s)) {
    watch<&SparseRecorder::handleLevel>(s_, Sparse::levelAttr);
    watch<&SparseRecorder::handleNote>(s_, Sparse::noteAttr);
    watch<&SparseRecorder::handleLabel>(s_, Sparse::labelAttr);
  }
  void handleLevel() { log.push_back("level=" + std::to_string(s_->level())); }
  void handleNote(const int& key, Platform::ChangeKind kind) {
    log.push_back("note:" + std::to_string(key) + " " + Platform::changeKindName(kind));
  }
  void handleLabel() { log.push_back("label=" + s_->label()); }

  Sparse::Ptr s_;
  std::vector<std::string> log;
};

// Records every notification it receives as text, e.g. "name" or "tag:3".
class Recorder : public Platform::Reactor {
 public:
  explicit Recorder(Widget::Ptr w) : w_(std::move(w)) {
    watch<&Recorder::handleName>(w_, Widget::nameAttr);
    watch<&Recorder::handleSize>(w_, Widget::sizeAttr);
    watch<&Recorder::handleHits>(w_, Widget::hitsAttr);
    watch<&Recorder::handleTag>(w_, Widget::tagAttr);
    watch<&Recorder::handleLabel>(w_, Widget::labelAttr);
    watch<&Recorder::handleChild>(w_, Widget::childAttr);
  }
  void handleInitialized() override { log.push_back("initialized"); }
  void handleName() { log.push_back("name=" + w_->name()); }
  void handleSize() { log.push_back("size=" + std::to_string(w_->size())); }
  void handleHits() { log.push_back("hits=" + std::to_string(w_->hits())); }
  void handleTag(const int& key) { log.push_back("tag:" + std::to_string(key)); }
  void handleLabel(const std::string& key) { log.push_back("label:" + key); }
  void handleChild(const int& key) { log.push_back("child:" + std::to_string(key)); }

  Widget::Ptr w_;
  std::vector<std::string> log;
};

}  // namespace PlatformTest
