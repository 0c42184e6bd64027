#include "classic.h"
#include "tie.h"

int main(int argc, char* argv[]) {
  return guarded([&] {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    CORBA::Object_var object = fetch(orb, argv[1]);
    Legacy::Stack_var stack = Legacy::Stack::_narrow(object);
    stack->push(1);
    stack->push(2);
    CHECK(stack->size() == 2);
    CHECK(stack->pop() == 2);
    CHECK(stack->pop() == 1);
    CHECK_THROWS(Legacy::Empty, stack->pop());
    stack->shutdown();
    orb->destroy();
  });
}
