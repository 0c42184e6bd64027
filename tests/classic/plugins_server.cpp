// Local interfaces as plug-ins of a server; a typedef and an exception in the scope of an interface.
#include <algorithm>
#include <map>

#include "classic.h"
#include "plugins.h"

class Reverse : public virtual Text::Filter, public virtual CORBA::LocalObject {
 public:
  char* apply(const char* line) override {
    std::string text(line);
    std::reverse(text.begin(), text.end());
    return CORBA::string_dup(text.c_str());
  }
};
class Twice : public virtual Text::Filter, public virtual CORBA::LocalObject {
 public:
  char* apply(const char* line) override { return CORBA::string_dup((std::string(line) + line).c_str()); }
};

class Editor_impl : public Closing<POA_Text::Editor> {
 public:
  explicit Editor_impl(CORBA::ORB_ptr orb) : Closing(orb) {
    filters_["reverse"] = new Reverse;
    filters_["twice"] = new Twice;
  }
  char* title() override { return CORBA::string_dup("editor"); }
  char* run(const char* filter, const char* line) override {
    auto found = filters_.find(filter);
    if (found == filters_.end()) {
      Text::Editor::Names known;
      known.length(static_cast<CORBA::ULong>(filters_.size()));
      CORBA::ULong i = 0;
      for (auto& entry : filters_) known[i++] = entry.first.c_str();
      throw Text::Editor::Unknown(filter, known);
    }
    return found->second->apply(line);
  }
  CORBA::Any* describe(CORBA::Object_ptr what) override {
    CORBA::Any_var any = new CORBA::Any;
    Text::Editor_var editor = Text::Editor::_narrow(what);
    Text::Base_var base = Text::Base::_narrow(what);
    if (!CORBA::is_nil(editor))
      any <<= editor.in();
    else
      any <<= CORBA::Any::from_boolean(!CORBA::is_nil(base));
    return any._retn();
  }

 private:
  std::map<std::string, Text::Filter_var> filters_;
};

int main(int argc, char* argv[]) { return serve<Editor_impl>(argc, argv); }
