#include "classic.h"
#include "matrix.h"

int main(int argc, char* argv[]) {
  return guarded([&] {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    CORBA::Object_var object = fetch(orb, argv[1]);
    Geometry::Algebra_var algebra = Geometry::Algebra::_narrow(object);

    Geometry::Matrix a = {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}};
    Geometry::Matrix unit = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    Geometry::Matrix_var same = algebra->product(a, unit);
    CHECK(same[0][1] == 2 && same[2][0] == 7);
    algebra->transpose(a);
    CHECK(a[0][1] == 4 && a[1][0] == 2);
    Geometry::Row row;
    algebra->diagonal(a, row);
    CHECK(row[0] == 1 && row[1] == 5 && row[2] == 9);

    Geometry::Triangle corners;
    corners[0].x = 0;
    corners[0].y = 0;
    corners[1].x = 6;
    corners[1].y = 0;
    corners[2].x = 0;
    corners[2].y = 3;
    Geometry::Point centre = algebra->centre(corners);
    CHECK(centre.x == 2 && centre.y == 1);
    algebra->move(centre, 1, -1);
    CHECK(centre.x == 3 && centre.y == 0);

    Geometry::Pair names;
    names[0] = CORBA::string_dup("first");
    names[1] = CORBA::string_dup("second");
    Geometry::Pair_var swapped = algebra->swap(names);
    CHECK(std::string(swapped[0]) == "second");

    Geometry::Named named;
    Geometry::Matrix_copy(named.transform, a);
    named.names[1] = CORBA::string_dup("kept");
    Geometry::Named_var labelled = algebra->label(named);
    CHECK(std::string(labelled->names[0]) == "labelled");
    CHECK(std::string(labelled->names[1]) == "kept");
    CHECK(labelled->transform[2][2] == 9);
    Geometry::Matrix_slice* copy = Geometry::Matrix_dup(a);
    CHECK(copy[1][1] == 5);
    Geometry::Matrix_free(copy);

    algebra->shutdown();
    orb->destroy();
  });
}
