#include "classic.h"
#include "counter.h"

int main(int argc, char* argv[]) {
  return guarded([&] {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    CORBA::Object_var object = fetch(orb, argv[1]);
    Counting::Counter_var counter = Counting::Counter::_narrow(object);
    counter->value(40);
    CHECK(counter->add(2) == 42);
    CHECK(counter->value() == 42);
    CHECK(counter->steps() == 1);
    counter->label("answers");
    CORBA::String_var label = counter->label();
    CHECK(std::string(label) == "answers");
    try {
      counter->add(1000);
      CHECK(!"an exception was raised");
    } catch (const Counting::OutOfRange& e) {
      CHECK(e.low == 0 && e.high == 100);
      CHECK(std::string(e.reason) == "no such value");
    }
    CHECK_THROWS(CORBA::UserException, counter->value(-1));
    CHECK(counter->value() == 42);
    counter->shutdown();
    orb->destroy();
  });
}
