// Every way of passing a parameter. Each operation returns `a`, gives `b` out in `c`, and `a` in `b`.
#include "classic.h"
#include "parameters.h"

using namespace Parameters;

class Every_impl : public virtual POA_Parameters::Every {
 public:
  explicit Every_impl(CORBA::ORB_ptr orb) : orb_(CORBA::ORB::_duplicate(orb)) {}

  CORBA::Octet octets(CORBA::Octet a, CORBA::Octet& b, CORBA::Octet_out c) override {
    c = b;
    return b = a;
  }
  CORBA::Boolean booleans(CORBA::Boolean a, CORBA::Boolean& b, CORBA::Boolean_out c) override {
    c = b;
    return b = a;
  }
  CORBA::WChar wide(CORBA::WChar a, CORBA::WChar& b, CORBA::WChar_out c) override {
    c = b;
    return b = a;
  }
  CORBA::LongLong longs(CORBA::LongLong a, CORBA::LongLong& b, CORBA::LongLong_out c) override {
    c = b;
    return b = a;
  }
  Level levels(Level a, Level& b, Level_out c) override {
    c = b;
    return b = a;
  }
  char* strings(const char* a, char*& b, CORBA::String_out c) override {
    c = b;
    b = CORBA::string_dup(a);
    return CORBA::string_dup(a);
  }
  Plain flat(const Plain& a, Plain& b, Plain_out c) override {
    c = b;
    return b = a;
  }
  Variable* managed(const Variable& a, Variable& b, Variable_out c) override {
    c = new Variable(b);
    b = a;
    return new Variable(a);
  }
  Many* lists(const Many& a, Many& b, Many_out c) override {
    c = new Many(b);
    b = a;
    return new Many(a);
  }
  Triple_slice* triples(const Triple a, Triple_slice* b, Triple_out c) override {
    Triple_copy(c, b);
    Triple_copy(b, a);
    return Triple_dup(a);
  }
  Texts_slice* both(const Texts a, Texts_slice* b, Texts_out c) override {
    c = Texts_dup(b);
    Texts_copy(b, a);
    return Texts_dup(a);
  }
  Every_ptr objects(Every_ptr a, Every_ptr& b, Every_out c) override {
    c = Parameters::Every::_duplicate(b);
    CORBA::release(b);
    b = Parameters::Every::_duplicate(a);
    return Parameters::Every::_duplicate(a);
  }
  CORBA::Any* anys(const CORBA::Any& a, CORBA::Any& b, CORBA::Any_out c) override {
    c = new CORBA::Any(b);
    b = a;
    return new CORBA::Any(a);
  }
  void shutdown() override { orb_->shutdown(false); }

 private:
  CORBA::ORB_var orb_;
};

int main(int argc, char* argv[]) { return serve<Every_impl>(argc, argv); }
