// Arrays and structs of fixed length in every direction.
#include <utility>

#include "classic.h"
#include "matrix.h"

class Algebra_impl : public virtual POA_Geometry::Algebra {
 public:
  explicit Algebra_impl(CORBA::ORB_ptr orb) : orb_(CORBA::ORB::_duplicate(orb)) {}

  Geometry::Matrix_slice* product(const Geometry::Matrix a, const Geometry::Matrix b) override {
    Geometry::Matrix_slice* result = Geometry::Matrix_alloc();
    for (int i = 0; i < Geometry::SIZE; ++i) {
      for (int j = 0; j < Geometry::SIZE; ++j) {
        result[i][j] = 0;
        for (int k = 0; k < Geometry::SIZE; ++k) result[i][j] += a[i][k] * b[k][j];
      }
    }
    return result;
  }
  void transpose(Geometry::Matrix_slice* m) override {
    for (int i = 0; i < Geometry::SIZE; ++i) {
      for (int j = 0; j < i; ++j) std::swap(m[i][j], m[j][i]);
    }
  }
  void diagonal(const Geometry::Matrix m, Geometry::Row_out entries) override {
    for (int i = 0; i < Geometry::SIZE; ++i) entries[i] = m[i][i];
  }
  Geometry::Point centre(const Geometry::Triangle corners) override {
    Geometry::Point p;
    p.x = (corners[0].x + corners[1].x + corners[2].x) / 3;
    p.y = (corners[0].y + corners[1].y + corners[2].y) / 3;
    return p;
  }
  void move(Geometry::Point& p, CORBA::Double dx, CORBA::Double dy) override {
    p.x += dx;
    p.y += dy;
  }
  Geometry::Pair_slice* swap(const Geometry::Pair names) override {
    Geometry::Pair_var result = Geometry::Pair_alloc();
    result[0] = CORBA::string_dup(names[1]);
    result[1] = CORBA::string_dup(names[0]);
    return result._retn();
  }
  Geometry::Named* label(const Geometry::Named& value) override {
    Geometry::Named_var copy = new Geometry::Named(value);
    copy->names[0] = CORBA::string_dup("labelled");
    return copy._retn();
  }
  void shutdown() override { orb_->shutdown(false); }

 private:
  CORBA::ORB_var orb_;
};

int main(int argc, char* argv[]) { return serve<Algebra_impl>(argc, argv); }
