#include "classic.h"
#include "parameters.h"

using namespace Parameters;

static void plain_ones(Every_ptr every) {
  CORBA::Octet o = 200, o_out = 0;
  CHECK(every->octets(255, o, o_out) == 255 && o == 255 && o_out == 200);
  CORBA::Boolean b = true, b_out = true;
  CHECK(!every->booleans(false, b, b_out) && !b && b_out);
  CORBA::WChar w = L'\u20ac', w_out = 0;
  CHECK(every->wide(L'x', w, w_out) == L'x' && w == L'x' && w_out == L'\u20ac');
  CORBA::LongLong l = -1, l_out = 0;
  CHECK(every->longs(0x123456789abcdefLL, l, l_out) == 0x123456789abcdefLL && l_out == -1);
  Level level = low, level_out = high;
  CHECK(every->levels(high, level, level_out) == high && level == high && level_out == low);
  Plain f, g, h;
  f.o = 200;
  f.d = 0.5;
  f.b = true;
  g.o = 1;
  g.d = 2;
  g.b = false;
  Plain r = every->flat(f, g, h);
  CHECK(r.o == 200 && g.b && g.d == 0.5 && h.o == 1 && !h.b);
  Triple t = {1, 2, 3}, u = {4, 5, 6}, v;
  Triple_var same = every->triples(t, u, v);
  CHECK(same[2] == 3 && u[0] == 1 && v[1] == 5);
}

static void strings(Every_ptr every) {
  CORBA::String_var b = CORBA::string_dup("before"), c;
  CORBA::String_var r = every->strings("in", b.inout(), c.out());
  CHECK(std::string(r) == "in" && std::string(b) == "in" && std::string(c) == "before");
  char* raw = CORBA::string_dup("raw");
  char* out = nullptr;
  r = every->strings("", raw, out);
  CHECK(std::string(raw).empty() && std::string(out) == "raw");
  CORBA::string_free(raw);
  CORBA::string_free(out);
}

static void managed_ones(Every_ptr every) {
  Variable a, b;
  a.s = CORBA::string_dup("a");
  a.l = 1;
  b.s = CORBA::string_dup("b");
  b.l = 2;
  Variable_var c;
  Variable_var r = every->managed(a, b, c);
  CHECK(r->l == 1 && std::string(b.s) == "a" && std::string(c->s) == "b");

  Many one, two;
  one.length(1);
  one[0] = a;
  two.length(2);
  two[1] = r.in();
  Many_var three;
  Many_var all = every->lists(one, two, three.out());
  CHECK(all->length() == 1 && two.length() == 1 && three->length() == 2 && three[1u].l == 1);

  Texts x, y;
  x[0] = CORBA::string_dup("x0");
  x[1] = CORBA::string_dup("x1");
  y[0] = CORBA::string_dup("y0");
  y[1] = CORBA::string_dup("y1");
  Texts_var z;
  Texts_var texts = every->both(x, y, z);
  CHECK(std::string(texts[1]) == "x1" && std::string(y[0]) == "x0" && std::string(z[1]) == "y1");
}

static void references(Every_ptr every) {
  Every_var b = Every::_duplicate(every), c;
  Every_var r = every->objects(Every::_nil(), b.inout(), c.out());
  CHECK(CORBA::is_nil(r) && CORBA::is_nil(b) && c->_is_equivalent(every));
  CORBA::Any a, in_out;
  a <<= CORBA::Short(-7);
  in_out <<= every;
  CORBA::Any_var out;
  CORBA::Any_var result = every->anys(a, in_out, out);
  CORBA::Short number = 0;
  Every_ptr same = Every::_nil();
  CHECK((result.in() >>= number) && number == -7);
  CHECK((out.in() >>= same) && same->_is_equivalent(every));
}

int main(int argc, char* argv[]) {
  return guarded([&] {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    CORBA::Object_var object = fetch(orb, argv[1]);
    Every_var every = Every::_narrow(object);
    plain_ones(every);
    strings(every);
    managed_ones(every);
    references(every);
    every->shutdown();
    orb->destroy();
  });
}
