#include "corba/nvlist.h"

#include "base/raise.h"

namespace CORBA {

NamedValue::~NamedValue() = default;
NVList::~NVList() = default;

NamedValue* NVList::add_value(const char* name, const Any& value, Flags flags, Environment& ev) {
  ev.clear();
  if (flags < ARG_IN || flags > ARG_INOUT) raise<BAD_PARAM>(ev);
  const NamedValue_var item(new NamedValue(name, value, flags));
  items_.push_back(item);
  return items_.back().in();
}

NamedValue* NVList::add_item_consume(char* name, Flags flags, Environment& ev) {
  const String_var owned(name);
  return add_item(name, flags, ev);
}

NamedValue* NVList::add_value_consume(char* name, Any* value, Flags flags, Environment& ev) {
  const String_var owned(name);
  const std::unique_ptr<Any> owned_value(value);
  return add_value(name, value ? *value : Any(), flags, ev);
}

NamedValue* NVList::item(ULong index, Environment& ev) const {
  ev.clear();
  if (index >= items_.size()) raise<Bounds>(ev);
  return items_[index].in();
}

void NVList::remove(ULong index, Environment& ev) {
  ev.clear();
  if (index >= items_.size()) raise<Bounds>(ev);
  items_.erase(items_.begin() + static_cast<std::ptrdiff_t>(index));
}

bool NVList::encode_values(CDR* cdr, Flags direction) const {
  for (const NamedValue_var& item : items_)
    if ((item->flags() & direction) && !item->value()->encode_value(cdr)) return false;
  return true;
}

bool NVList::decode_values(CDR* cdr, Flags direction) {
  for (const NamedValue_var& item : items_)
    if ((item->flags() & direction) && !item->value()->decode_value(cdr)) return false;
  return true;
}

}  // namespace CORBA
