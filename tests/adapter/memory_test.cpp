// What operations leave behind when memory runs out in the middle of them.
#include <cstdlib>

#include "objects.h"

using namespace PortableServer;

namespace {

thread_local int allocations_left = -1;  // of the calling thread; below 0: any number

void* allocate(std::size_t octets) {
  if (allocations_left == 0) return nullptr;
  if (allocations_left > 0) --allocations_left;
  return std::malloc(octets ? octets : 1);
}

void* allocate_or_throw(std::size_t octets) {
  if (void* block = allocate(octets)) return block;
  allocations_left = -1;  // one fails; whoever reports it has memory
  throw std::bad_alloc();
}

class Memory : public ObjectTest {
 protected:
  /// Runs the operation with its n-th allocation failing, for every n, until it works. `check` looks at what a
  /// failure left behind.
  template <class Operation, class Check>
  void sweep(Operation&& operation, Check&& check) {
    for (int n = 0; n < 1000; ++n) {
      SCOPED_TRACE(n);
      bool failed = true;
      CORBA::Environment ev;
      allocations_left = n;
      try {
        operation(ev);
        failed = false;
      } catch (const CORBA::SystemException& e) {
        const std::string_view name(e._name());
        EXPECT_TRUE(name == "NO_MEMORY" || name == "BAD_PARAM") << e.id();
      } catch (...) {
        allocations_left = -1;
        ADD_FAILURE() << "raised something else";
      }
      const bool none_failed = !failed && allocations_left >= 0;
      allocations_left = -1;
      if (failed) check();
      if (none_failed) return;
      if (HasFailure()) return;
    }
    FAIL() << "no end of it";
  }
};

}  // namespace

void* operator new(std::size_t octets) { return allocate_or_throw(octets); }
void* operator new[](std::size_t octets) { return allocate_or_throw(octets); }
void* operator new(std::size_t octets, const std::nothrow_t&) noexcept {
  void* block = allocate(octets);
  if (!block) allocations_left = -1;
  return block;
}
void* operator new[](std::size_t octets, const std::nothrow_t& nothrow) noexcept {
  return operator new(octets, nothrow);
}
// Not inlined: the compiler would see free() on what came from operator new.
[[gnu::noinline]] void operator delete(void* block) noexcept { std::free(block); }
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept { std::free(block); }
[[gnu::noinline]] void operator delete[](void* block) noexcept { std::free(block); }
[[gnu::noinline]] void operator delete[](void* block, std::size_t) noexcept { std::free(block); }

TEST_F(Memory, APoaIsMadeWholeOrNotAtAll) {
  POA_var made;
  sweep([&](auto& ev) { made = top->create_POA("new", nullptr, {}, ev); },
        [&] { EXPECT_EQ(POAList_var(top->the_children())->length(), 0u); });
  EXPECT_TRUE(made.in());
}

TEST_F(Memory, LookingAtTheTree) {
  child(top, "A");
  child(top, "B");
  const auto whole = [&] { EXPECT_EQ(POAList_var(top->the_children())->length(), 2u); };
  sweep([&](auto& ev) { POA_var found = top->find_POA("A", false, ev); }, whole);
  sweep([&](auto& ev) { POAList_var list = top->the_children(ev); }, whole);
  sweep([&](auto& ev) { const CORBA::OctetSeq_var id = top->id(ev); }, whole);
}

// No servant is handed over without its id, and none is forgotten.
TEST_F(Memory, ATeardownThatStopsGoesOn) {
  Etherealizer etherealizer;
  POA_var poa = child(top, "torn down", policies(root, USE_SERVANT_MANAGER, USER_ID));
  poa->set_servant_manager(&etherealizer);
  poa->activate_object_with_id(a, &servant);
  poa->activate_object_with_id(b, &other);
  std::string handed_over;
  etherealizer.calls.reserve(8);
  sweep([&](auto& ev) { poa->destroy(true, false, ev); }, [] {});
  for (const auto& call : etherealizer.calls) handed_over += std::get<0>(call);
  EXPECT_EQ(handed_over, "ab");
}

TEST_F(Memory, AnIdOfATextIsNullWithoutMemory) {
  for (int n = 0; n < 2; ++n) {
    allocations_left = n;
    ObjectId* oid = string_to_ObjectId("a rather long text for an id");
    allocations_left = -1;
    EXPECT_EQ(oid, nullptr);
  }
}
