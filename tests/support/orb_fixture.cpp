#include "orb_fixture.h"

#include <mutex>

#include "zrsv.h"

namespace {

class OrbEnvironment : public testing::Environment {
 public:
  void* orb() {
    std::lock_guard lock(mutex_);
    if (!orb_) orb_ = CORBA_ORB_init(nullptr, nullptr, "", CORBA::Environment()._evp);
    return orb_;
  }
  PortableServer::POA* root() {
    std::lock_guard lock(mutex_);
    if (root_.in()) return root_.in();
    CORBA::Environment env;
    CORBA::Object resolved;
    resolved.set_ref(CORBA_ORB_resolve_initial_references(orb(), "RootPOA", env._evp));
    if (!resolved.get_ref()) ADD_FAILURE() << "no root POA";
    root_ = PortableServer::POA::_narrow(&resolved);
    return root_.in();
  }
  void TearDown() override {
    root_ = PortableServer::POA::_nil();
    CORBA::Environment env;
    if (orb_) CORBA_ORB_destroy(orb_, env._evp);
    EXPECT_EQ(env._evp->_major, static_cast<uint32_t>(CORBA_NO_EXCEPTION));
  }

 private:
  std::recursive_mutex mutex_;  // tests ask for these on threads of their own, too
  void* orb_ = nullptr;
  PortableServer::POA_var root_;
};

// Owned by the test framework.
OrbEnvironment& environment() {
  static auto* one = static_cast<OrbEnvironment*>(testing::AddGlobalTestEnvironment(new OrbEnvironment));
  return *one;
}

[[maybe_unused]] const OrbEnvironment& registered_before_the_tests_run = environment();

}  // namespace

void* test_orb() { return environment().orb(); }

PortableServer::POA* test_root_poa() { return environment().root(); }

std::string unique_name(const std::string& stem) {
  static std::atomic<int> last{0};
  return stem + "-" + std::to_string(++last);
}

AdapterTest::AdapterTest()
    : root(test_root_poa()),
      top(root->create_POA(unique_name("top").c_str(), nullptr, CORBA::PolicyList())) {}

void AdapterTest::TearDown() {
  try {
    top->destroy(false, false);
  } catch (const CORBA::BAD_PARAM&) {  // the test did it
  }
}
