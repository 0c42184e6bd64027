#include "classic.h"
#include "shapes.h"

int main(int argc, char* argv[]) {
  return guarded([&] {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    CORBA::Object_var object = fetch(orb, argv[1]);
    Shapes::Board_var board = Shapes::Board::_narrow(object);

    Shapes::Shape circle, square;
    circle.radius(2);
    square.side(5);
    CHECK(circle._d() == Shapes::circle);
    CHECK(board->area(circle) == 12);

    Shapes::Drawing drawing(2);
    drawing.length(2);
    drawing[0] = circle;
    drawing[1] = square;
    Shapes::Shape_var biggest = board->biggest(drawing);
    CHECK(biggest->_d() == Shapes::square && biggest->side() == 5);
    drawing.length(0);
    biggest = board->biggest(drawing);
    CHECK(biggest->_d() == Shapes::nothing);

    Shapes::Answer_var answer = board->ask(2);
    CHECK(answer->_d() == 2 && std::string(answer->text()) == "one or two");
    answer = board->ask(-3);
    CHECK(answer->drawn().side() == -3);
    answer = board->ask(99);
    CHECK(answer->_d() == 99 && answer->other() == 7);

    board->widen(circle);
    CHECK(circle._d() == Shapes::polygon && circle.corners()[0].y == 2);
    board->widen(circle);
    CHECK(circle.corners().length() == 2 && circle.corners()[1].x == 100);

    board->shutdown();
    orb->destroy();
  });
}
