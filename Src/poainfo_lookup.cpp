// From a reference to its POA.
#include <cstdlib>

#include "dispatch.h"

namespace {

/// POA names of a name part, outermost first: the part lists them innermost first.
class PathNames {
 public:
  explicit PathNames(std::string_view path) : rest_(path) {}
  /// The next name, NUL-terminated in `buffer`; null when there is none.
  const char* next(char (&buffer)[NAME_PART_MAXIMUM]) {
    if (done_) return nullptr;
    const auto separator = rest_.rfind(poa_seperator[0]);
    const auto name = separator == std::string_view::npos ? rest_ : rest_.substr(separator + 1);
    done_ = separator == std::string_view::npos;
    rest_ = done_ ? std::string_view() : rest_.substr(0, separator);
    std::memcpy(buffer, name.data(), name.size());
    buffer[name.size()] = '\0';
    return buffer;
  }

 private:
  std::string_view rest_;
  bool done_ = false;
};

/// The POA of a reference without reference data: named by its implementation and interface ids.
POAInfoPtr find_by_ids(CORBA::Object* reference, CORBA::Environment& ev) {
  CORBA_Environment core{};
  const char* intf = ZR_object_get_IntfID(reference->get_ref(), 0, &core);
  POAInfoPtr parent = root_poa_info->shared_from_this();
  if (std::getenv("ZR_IMPLID")) {
    POA_TRACE("POAInfo::findPOAInfoByReference intfid=%s", intf);
  } else {
    const char* impl = ZR_object_get_ImplID(reference->get_ref(), 0, &core);
    POA_TRACE("POAInfo::findPOAInfoByReference implid=%s intfid=%s", impl, intf);
    parent = parent->findChildByName(impl, ev, 1);
  }
  return parent->findChildByName(intf, ev, 1);
}

POAInfoPtr walk(std::string_view path, CORBA::Environment& ev) {
  POAInfoPtr poa = root_poa_info->shared_from_this();
  if (path.empty()) return poa;
  PathNames names(path);
  char name[NAME_PART_MAXIMUM];
  while (names.next(name)) poa = poa->findChildByName(name, ev, 1);
  POA_TRACE("findPOAInfoByReference end...[Reverse order of qualified name]");
  return poa;
}

void trace_names(std::string_view path) {
  if (!OM_TRACE_IS_ON) return;
  POA_TRACE("  reference_name = %.*s", static_cast<int>(path.size()), path.data());
  std::string qualified;
  PathNames names(path);
  char name[NAME_PART_MAXIMUM];
  while (names.next(name)) qualified.append(qualified.empty() ? "" : poa_seperator).append(name);
  POA_TRACE("  qualified_name=%s", qualified.c_str());
}

}  // namespace

RequestTarget RequestTarget::find(CORBA::Object* reference, CORBA::Environment& ev) {
  POA_TRACE("findPOAInfoByReference called...");
  if (CORBA::is_nil(reference)) {
    POA_TRACE("reference is_nil! throw CORBA::StExcep::BAD_PARAM.");
    raise<CORBA::BAD_PARAM>(ev, "findPOAInfoByReference [reference is nil.]");
  }
  RequestTarget target;
  target.object = reference;
  const unsigned char* octets = nullptr;
  uint32_t length = 0;
  if (!ZR_object_peek_id(reference->get_ref(), &octets, &length)) return target;
  if (length == 0) {
    target.poa = find_by_ids(reference, ev);
    return target;
  }
  if (length < 4) {
    POA_TRACE("reference_data is_nil!. throw CORBA::StExcep::BAD_PARAM.");
    raise<CORBA::BAD_PARAM>(ev, "findPOAInfoByReference [reference_data length is 0.]");
  }
  // No name part, parts that pass the end, and a path too long to have been made here are all refused alike.
  if (!target.data.parse(octets, length) || target.data.name_part.empty() ||
      target.data.path().size() >= NAME_PART_MAXIMUM) {
    POA_TRACE("bad reference data. throw CORBA::StExcep::BAD_PARAM.");
    raise<CORBA::BAD_PARAM>(ev, "findPOAInfoByReference [reference_data length is invalid.]");
  }
  target.has_data = true;
  trace_names(target.data.path());
  target.poa = walk(target.data.path(), ev);
  return target;
}

POAInfoPtr findPOAInfoByReference(CORBA::Object* reference, CORBA::Environment& _ev) {
  return RequestTarget::find(reference, _ev).poa;
}

PortableServer::ServantBase* POAInfo::find_servant(const RequestTarget& target, bool hold) {
  POA_TRACE("POAInfo::reference_to_servant");
  ActiveObjectMap* map = active_object_map;
  POA_TRACE("POAInfo::reference_to_servant poa_info=0x%lx aom=0x%lx", trace_address(this), trace_address(map));
  if (retains() && target.has_data && map) {
    if (PortableServer::ServantBase* found = map->findServantById(target.data.object_id, hold)) return found;
  }
  PortableServer::ServantBase* servant = uses_default_servant() ? servant_default.load() : nullptr;
  if (servant && hold) PortableServer::ServantAccess::hold(*servant);
  return servant;
}
