#include "classic.h"
#include "trees.h"

int main(int argc, char* argv[]) {
  return guarded([&] {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    CORBA::Object_var object = fetch(orb, argv[1]);
    Trees::Gardener_var gardener = Trees::Gardener::_narrow(object);

    Trees::Node seed;
    seed.name = CORBA::string_dup("seed");
    CHECK(gardener->count(seed) == 1);
    Trees::Node_var tree = gardener->grow(seed, 5);
    CHECK(gardener->count(tree) == 63);
    CHECK(std::string(tree->children[1].children[0].name) == "left");
    tree->children = tree->children[0].children;
    CHECK(gardener->count(tree) == 31);

    Trees::Expression two, three, sum;
    two.number(2);
    three.number(3);
    Trees::Sum operands;
    operands.of.length(2);
    operands.of[0] = two;
    operands.of[1] = three;
    sum.total(operands);
    operands.of[1] = sum;
    sum.total(operands);
    CHECK(gardener->value(sum) == 7);

    CORBA::Any_var any = gardener->wrap(tree);
    const Trees::Node* inside;
    CHECK(any.in() >>= inside);
    CHECK(gardener->count(*inside) == 31);
    CORBA::TypeCode_var type = any->type();
    CHECK(type->equal(Trees::_tc_Node));

    gardener->shutdown();
    orb->destroy();
  });
}
