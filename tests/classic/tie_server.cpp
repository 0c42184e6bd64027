// A class that knows nothing of servants, tied to a skeleton.
#include <vector>

#include "classic.h"
#include "tie.h"

class OldStack {
 public:
  explicit OldStack(CORBA::ORB_ptr orb) : orb_(CORBA::ORB::_duplicate(orb)) { ++alive; }
  ~OldStack() { --alive; }
  void push(CORBA::Long value) { values_.push_back(value); }
  CORBA::Long pop() {
    if (values_.empty()) throw Legacy::Empty();
    const CORBA::Long top = values_.back();
    values_.pop_back();
    return top;
  }
  CORBA::ULong size() const { return static_cast<CORBA::ULong>(values_.size()); }
  void shutdown() { orb_->shutdown(false); }

  static int alive;

 private:
  CORBA::ORB_var orb_;
  std::vector<CORBA::Long> values_;
};
int OldStack::alive = 0;

int main(int argc, char* argv[]) {
  return guarded([&] {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    CORBA::Object_var object = orb->resolve_initial_references("RootPOA");
    PortableServer::POA_var root = PortableServer::POA::_narrow(object);
    {
      POA_Legacy::Stack_tie<OldStack> tie(new OldStack(orb));  // owns it
      OldStack mine(orb);
      POA_Legacy::Stack_tie<OldStack> borrowed(mine);  // does not
      CHECK(tie._is_owner() && !borrowed._is_owner());
      CHECK(borrowed._tied_object() == &mine);
      Legacy::Stack_var reference = tie._this();
      publish(orb, reference, argv[1]);
      PortableServer::POAManager_var manager = root->the_POAManager();
      manager->activate();
      orb->run();
    }
    CHECK(OldStack::alive == 0);
    orb->destroy();
  });
}
