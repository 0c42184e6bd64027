#include "classic.h"
#include "plugins.h"

int main(int argc, char* argv[]) {
  return visit<Text::Editor>(argc, argv, [](CORBA::ORB_ptr, Text::Editor_ptr editor) {
    CORBA::String_var line = editor->run("reverse", "abc");
    CHECK(std::string(line) == "cba");
    line = editor->run("twice", line);
    CHECK(std::string(line) == "cbacba");
    try {
      line = editor->run("sort", "abc");
      CHECK(!"there is no such filter");
    } catch (const Text::Editor::Unknown& e) {
      CHECK(std::string(e.name) == "sort");
      CHECK(e.known.length() == 2 && std::string(e.known[1u]) == "twice");
    }
    Text::Base_var base = Text::Base::_duplicate(editor);
    CORBA::String_var title = base->title();
    CHECK(std::string(title) == "editor");

    CORBA::Any_var any = editor->describe(base);
    Text::Editor_ptr same = Text::Editor::_nil();
    CHECK((any.in() >>= same) && same->_is_equivalent(editor));
    any = editor->describe(CORBA::Object::_nil());
    CORBA::Boolean is_base = true;
    CHECK((any.in() >>= CORBA::Any::to_boolean(is_base)) && !is_base);
  });
}
