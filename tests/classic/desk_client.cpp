#include "classic.h"
#include "desk.h"

using namespace Desk;

class Desk::Key {
 public:
  int teeth = 0;
};

class Drawer_impl : public virtual Drawer {
 public:
  Key* spare() override { return spare_; }
  void spare(Key* key) override { spare_ = key; }
  Key* lock(Key* with, Key*& last, Key*& all) override {
    all = spare_;
    last = with;
    return with;
  }

 private:
  Key* spare_ = nullptr;
};

static void native_type() {
  Key one, two;
  Drawer_var drawer = new Drawer_impl;
  drawer->spare(&two);
  Key *last = nullptr, *all = nullptr;
  CHECK(drawer->lock(&one, last, all) == &one);
  CHECK(last == &one && all == &two && drawer->spare() == &two);
}

static std::string text(CORBA::String_var owner) { return owner.in(); }

static void abstract_interfaces(Office_ptr office) {
  Named_var pen = office->find("pen"), lamp = office->find("lamp"), none = office->find("none");
  CHECK(CORBA::is_nil(none));
  CHECK(text(pen->name()) == "pen" && text(lamp->describe("bright")) == "bright lamp");

  CORBA::Object_var object = pen->_to_object();
  CHECK(object->_is_a("IDL:Desk/Named:1.0") && pen->_to_value() == nullptr);
  Item_var item = Item::_narrow(pen);
  CHECK(item->weight() == 7 && text(item->name()) == "pen");
  CHECK(CORBA::is_nil(Named_var(Named::_narrow(office))));
  CHECK(CORBA::is_nil(Item_var(Item::_narrow(office))));

  Named_var b = Named::_duplicate(lamp), c;
  Named_var result = office->swap(item, b.inout(), c.out());
  CHECK(result->_is_equivalent(pen) && b->_is_equivalent(pen) && c->_is_equivalent(lamp));
  result = office->swap(Named::_nil(), b.inout(), c.out());
  CHECK(CORBA::is_nil(result) && CORBA::is_nil(b) && c->_is_equivalent(pen));

  Things first;
  first.length(1);
  first[0] = Named::_duplicate(pen);
  Things_var things = office->list(first);
  CHECK(things->length() == 3 && CORBA::is_nil(things[2u]));
  CHECK(text(things[0u]->name()) == "pen" && text(things[1u]->name()) == "lamp");

  CORBA::Any_var any = office->boxed(pen);
  CORBA::TypeCode_var type = any->type();
  CHECK(type->kind() == CORBA::tk_abstract_interface && type->equal(_tc_Named));
  Named_ptr found = Named::_nil();
  CHECK((any.in() >>= found) && text(found->name()) == "pen");
}

static void set(CORBA::Context_ptr context, const char* name, const char* value) {
  CORBA::Any any;
  any <<= value;
  context->set_one_value(name, any);
}

static void contexts(CORBA::ORB_ptr orb, Office_ptr office) {
  CORBA::Context_ptr made;
  orb->get_default_context(made);
  CORBA::Context_var all = made;
  set(all, "language", "en");
  set(all, "user.name", "nobody");
  set(all, "secret", "not for servers");
  all->create_child("mine", made);
  CORBA::Context_var mine = made;
  set(mine, "user.name",
      "Gr\xc3\xbc"
      "n");
  set(mine, "user.", "");
  CHECK(text(office->greet("a", mine)) ==
        "a: language=en user.= user.name=Gr\xc3\xbc"
        "n ");
  CHECK(text(office->greet("b", all)) == "b: language=en user.name=nobody ");
  CHECK(text(office->greet("c", CORBA::Context::_nil())) == "c: nothing ");
  office->note("d", mine);
  std::string noted;
  while ((noted = text(office->noted())).empty()) continue;
  CHECK(noted ==
        "d: user.name=Gr\xc3\xbc"
        "n ");
}

int main(int argc, char* argv[]) {
  return visit<Office>(argc, argv, [](CORBA::ORB_ptr orb, Office_ptr office) {
    native_type();
    abstract_interfaces(office);
    contexts(orb, office);
  });
}
