// Types that contain themselves, through sequences.
#include "classic.h"
#include "trees.h"

class Gardener_impl : public virtual POA_Trees::Gardener {
 public:
  explicit Gardener_impl(CORBA::ORB_ptr orb) : orb_(CORBA::ORB::_duplicate(orb)) {}

  CORBA::ULong count(const Trees::Node& root) override {
    CORBA::ULong n = 1;
    for (CORBA::ULong i = 0; i < root.children.length(); ++i) n += count(root.children[i]);
    return n;
  }
  Trees::Node* grow(const Trees::Node& root, CORBA::UShort depth) override {
    Trees::Node* copy = new Trees::Node(root);
    sprout(*copy, depth);
    return copy;
  }
  CORBA::Long value(const Trees::Expression& e) override {
    if (e._d()) return e.number();
    CORBA::Long sum = 0;
    for (CORBA::ULong i = 0; i < e.total().of.length(); ++i) sum += value(e.total().of[i]);
    return sum;
  }
  CORBA::Any* wrap(const Trees::Node& root) override {
    CORBA::Any_var any = new CORBA::Any;
    any <<= root;
    return any._retn();
  }
  void shutdown() override { orb_->shutdown(false); }

 private:
  static void sprout(Trees::Node& node, CORBA::UShort depth) {
    if (depth == 0) return;
    node.children.length(2);
    for (CORBA::ULong i = 0; i < 2; ++i) {
      node.children[i].name = CORBA::string_dup(i == 0 ? "left" : "right");
      sprout(node.children[i], static_cast<CORBA::UShort>(depth - 1));
    }
  }

  CORBA::ORB_var orb_;
};

int main(int argc, char* argv[]) { return serve<Gardener_impl>(argc, argv); }
