#include "classic.h"
#include "iterator.h"

int main(int argc, char* argv[]) {
  return visit<Catalogue::List>(argc, argv, [](CORBA::ORB_ptr, Catalogue::List_ptr list) {
    for (CORBA::UShort year = 1990; year < 2000; ++year) {
      Catalogue::Item item;
      item.title = CORBA::string_dup(("Volume of " + std::to_string(year)).c_str());
      item.year = year;
      list->add(item);
    }
    Catalogue::Items_var items;
    Catalogue::Iterator_var rest;
    list->all(4, items, rest);
    CHECK(items->length() == 4 && items[3u].year == 1993);
    CHECK(list->iterators() == 1);

    Catalogue::Item_var one;
    CHECK(rest->next(one) && one->year == 1994 && std::string(one->title) == "Volume of 1994");
    int found = 0;
    while (rest->next_n(2, items.out())) found += static_cast<int>(items->length());
    CHECK(found == 5);
    CHECK(!rest->next(one.out()));
    CHECK_THROWS(CORBA::BAD_PARAM, rest->next_n(0, items));
    rest->destroy();
    CHECK(gone(rest) && list->iterators() == 0);

    list->all(100, items, rest);
    CHECK(items->length() == 10 && CORBA::is_nil(rest));
  });
}
