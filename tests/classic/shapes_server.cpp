// Unions: with and without a default, of fixed and of variable length.
#include "classic.h"
#include "shapes.h"

class Board_impl : public virtual POA_Shapes::Board {
 public:
  explicit Board_impl(CORBA::ORB_ptr orb) : orb_(CORBA::ORB::_duplicate(orb)) {}

  CORBA::Double area(const Shapes::Shape& s) override {
    switch (s._d()) {
      case Shapes::circle:
        return 3 * s.radius() * s.radius();
      case Shapes::square:
        return static_cast<double>(s.side()) * s.side();
      case Shapes::polygon:
        return s.corners().length();
      default:
        return 0;
    }
  }
  Shapes::Shape* biggest(const Shapes::Drawing& d) override {
    Shapes::Shape_var best = new Shapes::Shape;
    best->_default();
    for (CORBA::ULong i = 0; i < d.length(); ++i) {
      if (area(d[i]) > area(best.in())) best = d[i];
    }
    return best._retn();
  }
  Shapes::Answer* ask(CORBA::Short what) override {
    Shapes::Answer* answer = new Shapes::Answer;
    if (what == -3) {
      Shapes::Shape s;
      s.side(what);
      answer->drawn(s);
    } else if (what == 1 || what == 2) {
      answer->text(CORBA::string_dup("one or two"));
      answer->_d(what);
    } else {
      answer->other(7);
      answer->_d(what);
    }
    return answer;
  }
  void widen(Shapes::Shape& s) override {
    if (s._d() == Shapes::polygon) {
      CORBA::ULong n = s.corners().length();
      s.corners().length(n + 1);
      s.corners()[n].x = s.corners()[n].y = 100;
    } else {
      Shapes::Points one(1);
      one.length(1);
      one[0].x = 1;
      one[0].y = 2;
      s.corners(one);
    }
  }
  void shutdown() override { orb_->shutdown(false); }

 private:
  CORBA::ORB_var orb_;
};

int main(int argc, char* argv[]) { return serve<Board_impl>(argc, argv); }
