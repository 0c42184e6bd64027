#include "archive.h"
#include "classic.h"

int main(int argc, char* argv[]) {
  return guarded([&] {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    CORBA::Object_var object = fetch(orb.in(), argv[1]);
    Archive::Shelf_var shelf = Archive::Shelf::_narrow(object.in());
    Archive::Document_var plan = shelf->open("plan");
    CHECK(shelf->loaded() == 0);
    plan->text("first draft");
    plan->text("second draft");
    CHECK(shelf->loaded() == 1);
    plan->forget();
    CORBA::String_var text = plan->text();
    CHECK(std::string(text.in()) == "second draft");
    CHECK(shelf->loaded() == 2);
    CHECK(shelf->stored() == 1);
    shelf->shutdown();
    orb->destroy();
  });
}
