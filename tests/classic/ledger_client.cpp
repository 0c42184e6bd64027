#include <cstdlib>

#include "classic.h"
#include "ledger.h"

int main(int argc, char* argv[]) {
  return guarded([&] {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    CORBA::Object_var object = fetch(orb, argv[1]);  // the first server's
    Ledger::Book_var book = Ledger::Book::_narrow(object);
    CORBA::String_var title = book->title();
    CHECK(std::string(title) == "1904");
    CHECK(book->generation() == std::atoi(argv[2]));
    book->shutdown();
    orb->destroy();
  });
}
