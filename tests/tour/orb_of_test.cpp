#include "orb_of_test.h"

#include <gtest/gtest.h>

namespace {

class Owner : public testing::Environment {
 public:
  CORBA::ORB_ptr orb() {
    int none = 0;
    if (!orb_.in()) orb_ = CORBA::ORB_init(none, nullptr);
    return orb_.in();
  }
  void TearDown() override {
    if (orb_.in()) orb_->destroy();
  }

 private:
  CORBA::ORB_var orb_;
};

auto* const owner = static_cast<Owner*>(testing::AddGlobalTestEnvironment(new Owner));  // the framework's

}  // namespace

CORBA::ORB_ptr orb() { return owner->orb(); }
