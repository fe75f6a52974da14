// The child type of LaterChild.h, defined apart from the code that deletes its instances.
#include "LaterChild.h"

namespace PlatformTest {

class LaterChildSm : public Platform::Reactor {
 public:
  LaterChildSm(int key, std::vector<std::string>& log) : key_(key), log_(log) {}
  ~LaterChildSm() override { log_.push_back("gone:" + std::to_string(key_)); }
  void handleInitialized() override { log_.push_back("init:" + std::to_string(key_)); }
  int key() const { return key_; }

 private:
  int key_;
  std::vector<std::string>& log_;
};

void laterChildIs(LaterParentSm& parent, int key, std::vector<std::string>& log) { parent.laterChildSmIs(key, log); }

int laterChildKey(const LaterChildSm& child) { return child.key(); }

}  // namespace PlatformTest
