// Strings, wide strings, sequences of them and of sequences, in every direction.
#include <algorithm>
#include <cctype>
#include <cstring>

#include "classic.h"
#include "words.h"

class Editor_impl : public Closing<POA_Words::Editor> {
 public:
  using Closing::Closing;
  Words::Lines* split(const char* text, CORBA::Char at) override {
    Words::Lines_var lines = new Words::Lines;
    std::string rest = text;
    for (;;) {
      const std::string::size_type end = rest.find(at);
      const CORBA::ULong n = lines->length();
      lines->length(n + 1);
      lines[n] = CORBA::string_dup(rest.substr(0, end).c_str());
      if (end == std::string::npos) return lines._retn();
      rest.erase(0, end + 1);
    }
  }
  char* join(const Words::Lines& parts, const char* between) override {
    std::string all;
    for (CORBA::ULong i = 0; i < parts.length(); ++i) {
      if (i > 0) all += between;
      all += parts[i];
    }
    return CORBA::string_dup(all.c_str());
  }
  void append(char*& text, const char* more) override {
    CORBA::String_var longer =
        CORBA::string_alloc(static_cast<CORBA::ULong>(std::strlen(text) + std::strlen(more)));
    std::strcpy(longer.inout(), text);
    std::strcat(longer.inout(), more);
    CORBA::string_free(text);
    text = longer._retn();
  }
  CORBA::WChar* reversed(const CORBA::WChar* text) override {
    std::wstring copy = text;
    std::reverse(copy.begin(), copy.end());
    return CORBA::wstring_dup(copy.c_str());
  }
  CORBA::Boolean parse(const char* text, CORBA::String_out first, Words::Lines_out rest) override {
    Words::Lines_var lines = split(text, ' ');
    first = CORBA::string_dup(lines[0u]);
    rest = new Words::Lines(lines->length());
    rest->length(lines->length() - 1);
    for (CORBA::ULong i = 1; i < lines->length(); ++i) (*rest)[i - 1] = lines[i];
    return lines->length() > 1;
  }
  Words::Heading* capitalise(const Words::Heading& h) override {
    Words::Heading_var copy = new Words::Heading(h);
    copy->initial = static_cast<CORBA::Char>(std::toupper(h.initial));
    copy->title = CORBA::string_dup((std::string(1, copy->initial) + (h.title.in() + 1)).c_str());
    return copy._retn();
  }
  Words::Labels* extend(const Words::Labels& old) override {
    Words::Labels* all = new Words::Labels(old);
    if (all->length() < all->maximum()) {
      all->length(all->length() + 1);
      (*all)[all->length() - 1] = CORBA::string_dup("new");
    }
    return all;
  }
  Words::Pages* paginate(const Words::Lines& all, CORBA::UShort lines_a_page) override {
    Words::Pages_var book = new Words::Pages;
    for (CORBA::ULong i = 0; i < all.length(); ++i) {
      if (i % lines_a_page == 0) book->length(book->length() + 1);
      Words::Lines& page = book[book->length() - 1];
      page.length(page.length() + 1);
      page[page.length() - 1] = all[i];
    }
    return book._retn();
  }
};

int main(int argc, char* argv[]) { return serve<Editor_impl>(argc, argv); }
