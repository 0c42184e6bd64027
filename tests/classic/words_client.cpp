#include "classic.h"
#include "words.h"

int main(int argc, char* argv[]) {
  return visit<Words::Editor>(argc, argv, [](CORBA::ORB_ptr, Words::Editor_ptr editor) {
    Words::Lines_var lines = editor->split("one,two,,four", ',');
    CHECK(lines->length() == 4);
    CHECK(std::string(lines[2u]).empty());
    lines[2u] = CORBA::string_dup("three");
    CORBA::String_var all = editor->join(lines, " & ");
    CHECK(std::string(all) == "one & two & three & four");

    CORBA::String_var text = CORBA::string_dup("Grüß");
    editor->append(text.inout(), " Gott");
    CHECK(std::string(text) == "Grüß Gott");
    CORBA::WString_var wide = editor->reversed(L"a\u20ac\U0001F600");
    CHECK(std::wstring(wide) == L"\U0001F600\u20aca");

    CORBA::String_var first;
    Words::Lines_var rest;
    CHECK(editor->parse("to be or not", first, rest));
    CHECK(std::string(first) == "to" && rest->length() == 3);
    CHECK(!editor->parse("silence", first.out(), rest.out()));
    CHECK(std::string(first) == "silence" && rest->length() == 0);

    Words::Heading heading;
    heading.title = CORBA::string_dup("introduction");
    heading.subtitle = CORBA::wstring_dup(L"Überblick");
    heading.initial = 'i';
    heading.sign = L'\u00a7';
    Words::Heading_var capital = editor->capitalise(heading);
    CHECK(std::string(capital->title) == "Introduction");
    CHECK(std::wstring(capital->subtitle) == L"Überblick");
    CHECK(capital->initial == 'I' && capital->sign == L'\u00a7');

    Words::Labels labels;
    labels.length(2);
    labels[0] = CORBA::string_dup("x");
    labels[1] = CORBA::string_dup("y");
    Words::Labels_var more = editor->extend(labels);
    CHECK(more->length() == 3 && std::string(more[2u]) == "new");
    CHECK(more->maximum() == 3);

    Words::Pages_var pages = editor->paginate(lines, 3);
    CHECK(pages->length() == 2 && pages[0u].length() == 3);
    CHECK(std::string(pages[1u][0]) == "four");
  });
}
