#include "classic.h"
#include "phonebook.h"

int main(int argc, char* argv[]) {
  return guarded([&] {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    CORBA::Object_var object = fetch(orb, argv[1]);
    Phones::Book_var book = Phones::Book::_narrow(object);
    Phones::Person_var ann = book->look_up("Ann");
    CORBA::String_var number = ann->number();
    CHECK(std::string(number) == "Ann: 555");
    CHECK_THROWS(CORBA::NO_IMPLEMENT, ann->boom());
    Phones::Person_var nobody = book->look_up("nobody");
    CHECK_THROWS(CORBA::OBJECT_NOT_EXIST, nobody->number());
    CHECK(book->lent() == 0);
    book->shutdown();
    orb->destroy();
  });
}
