// What textbooks on the C++ mapping write, each as a row: it compiles, and does the right thing. Rows of whole features
// are beside this file: initial references, servant managers, counting, time limits.

#include <iostream>
#include <sstream>
#include <type_traits>

#include "server.h"

namespace {

using CORBA::Object_var;
using CORBA::String_var;

struct Implementation {
  ~Implementation() { ++gone; }
  char* echo_string(const char* s) { return CORBA::string_dup(s); }
  CORBA::Long add(CORBA::Long a, CORBA::Long b) { return a + b; }
  Demo::Octets* echo_octets(const Demo::Octets& d) { return new Demo::Octets(d); }
  void refuse(const char*, CORBA::Long) {}
  void note(const char*) {}
  CORBA::Long notes() { return 0; }
  char* who() { return CORBA::string_dup("tied"); }
  void sleep_ms(CORBA::ULong) {}

  static inline int gone = 0;
};

class LocalManager : public virtual PortableServer::ServantLocator, public virtual CORBA::LocalObject {};
class ServantManager : public virtual POA_PortableServer::ServantLocator {
  PortableServer::Servant preinvoke(const PortableServer::ObjectId&, PortableServer::POA_ptr, const char*,
                                    void*&) override {
    return nullptr;
  }
  void postinvoke(const PortableServer::ObjectId&, PortableServer::POA_ptr, const char*, void*,
                  PortableServer::Servant) override {}
};

class TextbookTest : public StandardTest {
 public:
  PortableServer::POA_ptr poa() { return root; }
  CORBA::ORB_ptr the_orb() { return orb; }
  Demo::Echo_ptr the_echo() { return echo; }
  EchoServant& the_servant() { return *servant; }
};

/// A snippet, and whether it did the right thing.
struct Row {
  const char* what;
  bool (*works)(TextbookTest& t);
};

const Row orb_rows[] = {
    {"ORB_init with the default arguments",
     [](TextbookTest&) {
       int argc = 0;
       const CORBA::ORB_var again = CORBA::ORB_init(argc, nullptr),
                            named = CORBA::ORB_init(argc, nullptr, "x");
       again->destroy();
       named->destroy();
       return !CORBA::is_nil(again);
     }},
    {"initial references",
     [](TextbookTest& t) {
       Object_var o = t.the_orb()->resolve_initial_references("RootPOA");
       PortableServer::POA_var p = PortableServer::POA::_narrow(o.in());
       o = t.the_orb()->resolve_initial_references("POACurrent");
       PortableServer::Current_var c = PortableServer::Current::_narrow(o);
       return !CORBA::is_nil(p) && !CORBA::is_nil(c);
     }},
    {"references as text",
     [](TextbookTest& t) {
       String_var s = t.the_orb()->object_to_string(t.the_echo());
       Object_var a = t.the_orb()->string_to_object(s.in()), b = t.the_orb()->string_to_object(s);
       return a->_is_equivalent(b) && b->_is_equivalent(t.the_echo());
     }},
    {"_duplicate, _nil, is_nil of an ORB",
     [](TextbookTest& t) {
       CORBA::ORB_var a = CORBA::ORB::_duplicate(t.the_orb());
       return !CORBA::is_nil(a) && CORBA::is_nil(CORBA::ORB::_nil());
     }},
    {"references and their _var types",
     [](TextbookTest& t) {
       Object_var o = CORBA::Object::_duplicate(t.the_echo());
       Demo::Echo_var e = Demo::Echo::_unchecked_narrow(o.in());
       Demo::Echo_ptr p = e._retn();
       const bool gone = CORBA::is_nil(e);
       CORBA::release(p);
       return gone && o->_hash(100) < 100 && !o->_non_existent();
     }},
    {"the interface of an object",
     [](TextbookTest& t) {
       CORBA::InterfaceDef_var i = t.the_echo()->_get_interface();
       return !CORBA::is_nil(i) && t.the_echo()->_is_a(Demo::Echo::repository_id);
     }},
};

const Row adapter_rows[] = {
    {"POAManager and its states",
     [](TextbookTest& t) {
       PortableServer::POAManager_var m = t.poa()->the_POAManager();
       m->activate();
       PortableServer::POAManager::State s = m->get_state();
       return s == PortableServer::POAManager::ACTIVE;
     }},
    {"a child POA with policies, found and destroyed",
     [](TextbookTest& t) {
       CORBA::PolicyList pl;
       pl.length(2);
       PortableServer::LifespanPolicy_var v = t.poa()->create_lifespan_policy(PortableServer::PERSISTENT);
       pl[0] = PortableServer::LifespanPolicy::_duplicate(v);
       pl[1] = t.poa()->create_id_assignment_policy(PortableServer::USER_ID);
       PortableServer::POA_var p = t.poa()->create_POA("x", PortableServer::POAManager::_nil(), pl);
       pl[1]->destroy();
       PortableServer::POA_var f = t.poa()->find_POA("x", true);
       PortableServer::POAList_var l = t.poa()->the_children();
       String_var n = f->the_name();
       p->destroy(true, true);
       return l->length() == 1 && n.in() == std::string("x");
     }},
    {"InvalidPolicy has an index",
     [](TextbookTest& t) {
       CORBA::PolicyList pl;
       pl.length(1);
       pl[0] = t.poa()->create_servant_retention_policy(PortableServer::NON_RETAIN);
       try {
         t.poa()->create_POA("y", PortableServer::POAManager::_nil(), pl);
       } catch (const PortableServer::POA::InvalidPolicy& e) {
         CORBA::UShort i = e.index;
         return i == 0;
       }
       return false;
     }},
    {"activation and conversions",
     [](TextbookTest& t) {
       EchoServant s;
       PortableServer::ObjectId_var id = t.poa()->activate_object(&s);
       Object_var o = t.poa()->id_to_reference(id), o2 = t.poa()->id_to_reference(id.in());
       Object_var r = t.poa()->servant_to_reference(&s);
       PortableServer::ServantBase_var v = t.poa()->reference_to_servant(o);
       PortableServer::ObjectId_var i = t.poa()->reference_to_id(r);
       const bool same = v.in() == &s && o->_is_equivalent(o2) && i->length() == id->length();
       t.poa()->deactivate_object(id);
       return same;
     }},
    {"ids as text",
     [](TextbookTest&) {
       PortableServer::ObjectId_var id = PortableServer::string_to_ObjectId("abc");
       String_var s = PortableServer::ObjectId_to_string(id.in()), u = PortableServer::ObjectId_to_string(id);
       PortableServer::ObjectId*& out = id.out();
       return s.in() == std::string("abc") && u.in() == std::string("abc") && !out;
     }},
    {"_this of a servant, and of a tie",
     [](TextbookTest& t) {
       EchoServant s;
       Demo::Echo_var e = s._this();
       POA_Demo::Echo_tie<Implementation> tie(new Implementation);
       Demo::Echo_var u = tie._this();
       const bool right = e->add(1, 2) == 3 && String_var(u->who()).in() == std::string("tied");
       t.poa()->deactivate_object(*PortableServer::ObjectId_var(t.poa()->servant_to_id(&s)));
       t.poa()->deactivate_object(*PortableServer::ObjectId_var(t.poa()->servant_to_id(&tie)));
       return right;
     }},
    {"a tie and the object behind it",
     [](TextbookTest&) {
       const int before = Implementation::gone;
       Implementation mine;
       {
         POA_Demo::Echo_tie<Implementation> owner(new Implementation), borrower(mine);
         if (!owner._is_owner() || borrower._is_owner() || borrower._tied_object() != &mine) return false;
       }
       return Implementation::gone == before + 1;
     }},
    {"counting servants",
     [](TextbookTest&) {
       struct S : PortableServer::RefCountServantBase {};
       PortableServer::ServantBase_var v = new S;
       v->_add_ref();
       v->_remove_ref();
       PortableServer::Servant_var<PortableServer::ServantBase> w(v._retn());
       return w->_refcount_value() == 1;
     }},
    {"servant managers of both styles",
     [](TextbookTest&) {
       PortableServer::ServantManager_var m = new LocalManager;
       ServantManager s;
       PortableServer::ServantLocator_var l = s._this();
       return !CORBA::is_nil(m) && !CORBA::is_nil(l);
     }},
    {"ForwardRequest has a reference",
     [](TextbookTest& t) {
       try {
         throw PortableServer::ForwardRequest(t.the_echo());
       } catch (const PortableServer::ForwardRequest& f) {
         Object_var o = CORBA::Object::_duplicate(f.forward_reference.in());
         return static_cast<bool>(o->_is_equivalent(t.the_echo()));
       }
     }},
    {"a servant with a POA of its own choice",
     [](TextbookTest& t) {
       struct S : EchoServant {
         explicit S(PortableServer::POA_ptr p) : poa(p) {}
         PortableServer::POA_ptr _default_POA() override { return PortableServer::POA::_duplicate(poa); }
         PortableServer::POA_ptr poa;
       };
       CORBA::PolicyList pl;
       pl.length(1);
       pl[0] = t.poa()->create_implicit_activation_policy(PortableServer::IMPLICIT_ACTIVATION);
       PortableServer::POAManager_var m = t.poa()->the_POAManager();
       PortableServer::POA_var p = t.poa()->create_POA("own", m, pl);
       S s(p);
       Demo::Echo_var e = s._this();
       PortableServer::ObjectId_var id = p->servant_to_id(&s);
       const bool right = e->add(1, 2) == 3;
       p->destroy(true, true);
       return right;
     }},
    {"operations of a servant of every interface",
     [](TextbookTest& t) {
       return !t.the_servant()._non_existent() && t.the_servant()._is_a(Demo::Echo::repository_id);
     }},
};

const Row value_rows[] = {
    {"system exceptions tell what they are",
     [](TextbookTest&) {
       try {
         throw CORBA::TRANSIENT(1, CORBA::COMPLETED_MAYBE);
       } catch (CORBA::SystemException& e) {
         std::ostringstream text;
         text << e << e._name();
         return e.minor() == 1 && e.completed() == CORBA::COMPLETED_MAYBE &&
                std::string(e._rep_id()) == "IDL:omg.org/CORBA/TRANSIENT:1.0" &&
                text.str().find("TRANSIENT") != std::string::npos;
       }
     }},
    {"_downcast of exceptions",
     [](TextbookTest&) {
       CORBA::TRANSACTION_REQUIRED required;
       CORBA::Exception* e = &required;
       return CORBA::SystemException::_downcast(e) == e && !CORBA::TRANSIENT::_downcast(e) &&
              CORBA::OMGVMCID == 0x4F4D0000;
     }},
    {"strings",
     [](TextbookTest&) {
       String_var s = CORBA::string_dup("a");
       s = "b";
       std::string t(s);
       char* c = CORBA::string_alloc(3);
       CORBA::string_free(c);
       CORBA::WString_var w = CORBA::wstring_dup(L"a");
       const CORBA::WChar* v = L"abc";
       std::ostringstream out;
       out << s;
       return t == "b" && out.str() == "b" && w.in()[0] == v[0];
     }},
    {"_out types",
     [](TextbookTest&) {
       const auto fill = [](CORBA::String_out text) { text = CORBA::string_dup("x"); };
       const auto grow = [](char*& text) {
         String_var longer = CORBA::string_alloc(2);
         std::strcat(std::strcpy(longer.inout(), text), "y");
         CORBA::string_free(text);
         text = longer._retn();
       };
       String_var s;
       fill(s);
       grow(s.inout());
       return s.in() == std::string("xy");
     }},
    {"sequences",
     [](TextbookTest&) {
       CORBA::StringSeq s;
       s.length(1);
       s[0] = CORBA::string_dup("x");
       CORBA::OctetSeq o(10);
       CORBA::Octet* b = CORBA::OctetSeq::allocbuf(4);
       o.replace(4, 4, b, true);
       CORBA::Octet* mine = o.get_buffer(true);
       CORBA::OctetSeq::freebuf(mine);
       CORBA::LongSeq l;
       l.length(1);
       CORBA::StringSeq_var v = new CORBA::StringSeq(s);
       v->length(3);
       v[1] = v[0];
       v[0] = CORBA::string_dup("y");
       s = v.in();
       return o.length() == 0 && l.length() == 1 && std::string(s[0].in()) + v[1].in() + s[2].in() == "yx";
     }},
    {"Any of basic values",
     [](TextbookTest& t) {
       CORBA::Any a;
       CORBA::Long l = 0;
       a <<= CORBA::Long(1);
       bool right = (a >>= l) && l == 1;
       const char* s = nullptr;
       a <<= "x";
       right = right && (a >>= s) && std::string(s) == "x";
       CORBA::Octet o = 0;
       a <<= CORBA::Any::from_octet(1);
       right = right && (a >>= CORBA::Any::to_octet(o)) && o == 1;
       CORBA::Boolean b = false;
       a <<= CORBA::Any::from_boolean(true);
       right = right && (a >>= CORBA::Any::to_boolean(b)) && b;
       Object_var r;
       a <<= t.the_echo();
       right = right && (a >>= CORBA::Any::to_object(r.out())) && r->_is_equivalent(t.the_echo());
       CORBA::Double d = 0;
       a <<= CORBA::Double(2);
       right = right && (a >>= d) && d == 2;
       CORBA::Any_var v = new CORBA::Any;
       v <<= CORBA::ULongLong(3);
       const CORBA::WChar* w = nullptr;
       a <<= CORBA::Any::from_wstring(L"wide", 0);
       right = right && (a >>= CORBA::Any::to_wstring(w, 0)) && std::wstring(w) == L"wide";
       return right;
     }},
    {"TypeCodes",
     [](TextbookTest& t) {
       CORBA::TypeCode_var l = CORBA::TypeCode::_duplicate(CORBA::_tc_long);
       CORBA::StructMemberSeq m;
       m.length(1);
       m[0].name = "first";
       m[0].type = CORBA::TypeCode::_duplicate(CORBA::_tc_long);
       CORBA::TypeCode_var s = t.the_orb()->create_struct_tc("IDL:A:1.0", "A", m);
       return l->kind() == CORBA::tk_long && l->equal(CORBA::_tc_long) && s->kind() == CORBA::tk_struct;
     }},
    {"basic types are types of their own",
     [](TextbookTest&) {
       CORBA::LongDouble d = 1;
       CORBA::Fixed f;
       return !std::is_same_v<CORBA::Boolean, CORBA::Octet> && std::is_same_v<CORBA::WChar, wchar_t> &&
              d == 1 && f.fixed_digits() <= 31;
     }},
    {"results in _var types and std::string",
     [](TextbookTest& t) {
       String_var v = t.the_echo()->who();
       std::string s = v.in();
       return s == "echo";
     }},
};

TEST_F(TextbookTest, WhatTextbooksWriteWorks) {
  const auto try_all = [&](const auto& rows) {
    for (const Row& row : rows) {
      SCOPED_TRACE(row.what);
      try {
        EXPECT_TRUE(row.works(*this));
      } catch (const CORBA::Exception& e) {
        ADD_FAILURE() << e;
      }
    }
  };
  try_all(orb_rows);
  try_all(adapter_rows);
  try_all(value_rows);
}

}  // namespace
