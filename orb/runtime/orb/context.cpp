#include "corba/context.h"

#include "base/raise.h"
#include "corba/detail/any_operators.h"
#include "corba/detail/context_row.h"
#include "corba/orb.h"

namespace CORBA {
namespace {

constexpr std::string_view text_of(const char* text) { return text ? text : std::string_view(); }

bool is_open(std::string_view pattern) { return pattern.ends_with('*'); }

/// Where the properties that fit begin and end.
template <class Properties>
auto fitting(Properties& properties, std::string_view pattern) {
  if (!is_open(pattern)) return properties.equal_range(pattern);
  pattern.remove_suffix(1);
  auto first = properties.lower_bound(pattern), last = first;
  while (last != properties.end() && last->first.starts_with(pattern)) ++last;
  return std::pair(first, last);
}

/// The text of a property. BAD_PARAM when it is none, or has no name.
const char* checked_text(const char* name, const Any& value, Environment& ev) {
  const char* text = nullptr;
  if (text_of(name).empty() || !(value >>= text)) raise<BAD_PARAM>(ev);
  return text;
}

}  // namespace

Context::~Context() = default;

void Context::create_child(const char* name, Context*& child, Environment& ev) {
  ev.clear();
  child = new Context(name, this);
}

void Context::set_one_value(const char* name, const Any& value, Environment& ev) {
  ev.clear();
  std::string text = checked_text(name, value, ev);
  const zrsv::MutexLock lock(mutex_);
  properties_.insert_or_assign(name, std::move(text));
}

void Context::set_values(NVList* values, Environment& ev) {
  ev.clear();
  if (!values) raise<BAD_PARAM>(ev);
  Properties fresh;
  for (ULong i = 0; i < values->count(); ++i) {
    NamedValue* const one = values->item(i);
    fresh.insert_or_assign(one->name(), checked_text(one->name(), *one->value(), ev));
  }
  const zrsv::MutexLock lock(mutex_);
  fresh.merge(properties_);
  properties_.swap(fresh);
}

void Context::delete_values(const char* pattern, Environment& ev) {
  ev.clear();
  const zrsv::MutexLock lock(mutex_);
  const auto [first, last] = fitting(properties_, text_of(pattern));
  if (first == last) raise<BAD_CONTEXT>(ev);
  properties_.erase(first, last);
}

void Context::get_values(const char* start_scope, Flags flags, const char* pattern, NVList*& values,
                         Environment& ev) {
  ev.clear();
  const Context* start = this;
  if (const std::string_view wanted = text_of(start_scope); !wanted.empty())
    while (start && start->name_ != wanted) start = start->parent();
  Properties found;
  if (start) start->collect(text_of(pattern), flags == CTX_RESTRICT_SCOPE, found);
  if (found.empty()) raise<BAD_CONTEXT>(ev);
  NVList_var list(new NVList);
  for (const auto& [name, text] : found) {
    Any value;
    value <<= text.c_str();
    list->add_value(name.c_str(), value, ARG_IN);
  }
  values = list._retn();
}

void Context::collect(std::string_view pattern, bool restricted, Properties& found) const {
  for (const Context* at = this; at; at = restricted ? nullptr : at->parent()) {
    const zrsv::MutexLock lock(at->mutex_);
    const auto [first, last] = fitting(at->properties_, pattern);
    found.insert(first, last);
  }
}

void ORB::get_default_context(Context*& context, Environment& ev) {
  ev.clear();
  static const Context_var of_process(new Context("", nullptr));
  context = Context::_duplicate(of_process);
}

// context: ulong count of texts, then names and values in turn
bool idl::write_context(CDR* cdr, const Context* context, const char* const* patterns, std::size_t count) {
  Context::Properties found;
  for (std::size_t i = 0; context && i < count; ++i) context->collect(patterns[i], false, found);
  auto length = static_cast<ULong>(2 * found.size());
  if (!Wire<ULong>::move(cdr, length)) return false;
  for (const auto& [name, value] : found)
    for (const char* text : {name.c_str(), value.c_str()})
      if (!Wire<const char*>::move(cdr, text)) return false;
  return true;
}

bool idl::read_context(CDR* cdr, Context*& context) {
  ULong length = 0;
  if (!Wire<ULong>::move(cdr, length) || length % 2 != 0) return false;
  Context::Properties found;
  for (; length != 0; length -= 2) {
    String_var name, value;
    if (!Wire<char*>::move(cdr, name.inout()) || !Wire<char*>::move(cdr, value.inout())) return false;
    found.insert_or_assign(name.in(), value.in());
  }
  release(std::exchange(context, new Context("", nullptr, std::move(found))));
  return true;
}

}  // namespace CORBA
