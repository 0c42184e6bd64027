#include "orb_fixture.h"

#include <mutex>

#include "no_leftovers.h"
#include "zrsv.h"

namespace {

class OrbEnvironment : public testing::Environment {
 public:
  void* orb() {
    std::call_once(orb_made_,
                   [&] { orb_ = CORBA_ORB_init(nullptr, nullptr, "", CORBA::Environment()._evp); });
    return orb_;
  }
  PortableServer::POA* root() {
    std::call_once(root_made_, [&] {
      CORBA::Object resolved;
      resolved.set_ref(CORBA_ORB_resolve_initial_references(orb(), "RootPOA", CORBA::Environment()._evp));
      root_ = PortableServer::POA::_narrow(&resolved);
    });
    return root_.in();
  }
  void TearDown() override {
    root_ = PortableServer::POA::_nil();
    CORBA::Environment ev;
    if (orb_) destroy_wholly(orb_, ev._evp);
    EXPECT_EQ(ev._evp->_major, uint32_t{CORBA_NO_EXCEPTION});
  }

 private:
  std::once_flag orb_made_, root_made_;  // tests ask for these on threads of their own, too
  void* orb_ = nullptr;
  PortableServer::POA_var root_;
};

// Owned by the test framework, and known to it before the tests run.
OrbEnvironment& environment =
    *static_cast<OrbEnvironment*>(testing::AddGlobalTestEnvironment(new OrbEnvironment));

}  // namespace

void* test_orb() { return environment.orb(); }

PortableServer::POA* test_root_poa() { return environment.root(); }

std::string unique_name(const std::string& stem) {
  static std::atomic<int> last{0};
  return stem + "-" + std::to_string(++last);
}

AdapterTest::AdapterTest()
    : root(test_root_poa()), top(root->create_POA(unique_name("top").c_str(), nullptr, {})) {}

void AdapterTest::TearDown() {
  try {
    top->destroy(false, false);
  } catch (const CORBA::BAD_PARAM&) {  // the test did it
  }
}
