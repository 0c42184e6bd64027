#include "corba/abstract_base.h"

namespace CORBA {

AbstractBase::~AbstractBase() = default;

AbstractBase* AbstractBase::_duplicate(AbstractBase* reference) { return idl::duplicate(reference); }
AbstractBase* AbstractBase::_narrow(Object* object) { return idl::unchecked_narrow<AbstractBase>(object); }

// abstract value: boolean TRUE, reference
//               | boolean FALSE, value; the only one here is nil: ulong 0
bool idl::move_abstract(CDR* cdr, bool& is_reference) {
  ULong tag = 0;
  if (!Wire<Boolean>::move(cdr, is_reference)) return false;
  return is_reference || (Wire<ULong>::move(cdr, tag) && tag == 0);
}

}  // namespace CORBA
