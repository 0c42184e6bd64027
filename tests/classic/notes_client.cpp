#include "classic.h"
#include "notes.h"

int main(int argc, char* argv[]) {
  return visit<Notes::Pad>(argc, argv, [](CORBA::ORB_ptr orb, Notes::Pad_ptr pad) {
    CORBA::Object_var object;
    for (int i = 0; i < 20; ++i) pad->write("again");
    while (pad->count() < 20) continue;  // oneway: they arrive, some time
    Notes::Reader_var reader = pad->new_reader();
    CORBA::String_var last = reader->last();
    CHECK(std::string(last) == "again");
    Notes::Pad_var owner = reader->owner();
    CHECK(owner->_is_equivalent(pad));
    CHECK(owner->_hash(1000) == pad->_hash(1000));
    CHECK(!reader->_is_equivalent(pad));

    object = pad->same(reader);
    CHECK(object->_is_equivalent(reader));
    object = pad->same(CORBA::Object::_nil());
    CHECK(CORBA::is_nil(object));

    CHECK(!reader->_non_existent());
    pad->drop_reader();
    CHECK(gone(reader));
    reader = pad->new_reader();
    CHECK(!reader->_non_existent());

    CORBA::String_var text = orb->object_to_string(pad);
    CORBA::Object_var again = orb->string_to_object(text);
    CHECK(again->_is_equivalent(pad));
    CHECK_THROWS(CORBA::BAD_PARAM, orb->string_to_object("no reference"));
  });
}
