#include "corba/any.h"
#include "raise.h"

namespace CORBA {

NamedValue* NVList::add_value(const char* name, const Any& value, Flags flags, Environment& env) {
  env.clear();
  if (flags < ARG_IN || flags > ARG_INOUT) raise<BAD_PARAM>(env);
  items_.push_back(std::make_unique<NamedValue>(name, value, flags));
  return items_.back().get();
}

NamedValue* NVList::item(ULong index, Environment& env) const {
  env.clear();
  if (index >= items_.size()) raise<Bounds>(env);
  return items_[index].get();
}

}  // namespace CORBA
