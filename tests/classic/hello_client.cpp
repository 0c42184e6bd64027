#include "classic.h"
#include "hello.h"

int main(int argc, char* argv[]) {
  return guarded([&] {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    CORBA::Object_var object = fetch(orb, argv[1]);
    Hello_var hello = Hello::_narrow(object);
    CHECK(!CORBA::is_nil(hello));
    CORBA::String_var text = hello->greet("world");
    CHECK(std::string(text.in()) == "Hello, world!");
    std::cout << text << std::endl;
    hello->shutdown();
    orb->destroy();
  });
}
