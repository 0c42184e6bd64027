#include "server_echo.h"

#include <chrono>
#include <thread>

namespace {

/// Nil for the root POA, which has none.
PortableServer::POA_ptr parent_of(PortableServer::POA_ptr poa) {
  try {
    return poa->the_parent();
  } catch (const CORBA::BAD_PARAM&) {
    return nullptr;
  }
}

/// "A/B/C"; "" for the root POA.
std::string path_of(PortableServer::POA_ptr poa) {
  std::string path;
  PortableServer::POA_var above;
  for (PortableServer::POA_ptr parent = parent_of(poa); parent; parent = parent_of(poa)) {
    const CORBA::String_var name = poa->the_name();
    path.insert(0, path.empty() ? "" : "/").insert(0, name.in());
    above = parent;
    poa = parent;
  }
  return path;
}

/// The octets as they are where they print, else as %xx.
std::string text_of(const PortableServer::ObjectId& id) {
  constexpr char digits[] = "0123456789abcdef";
  std::string text;
  for (CORBA::ULong i = 0; i < id.length(); ++i) {
    const unsigned octet = id[i];
    if (octet >= 0x20 && octet < 0x7F) {
      text += static_cast<char>(octet);
    } else {
      text += {'%', digits[octet >> 4], digits[octet & 15]};
    }
  }
  return text;
}

}  // namespace

std::string object_name(PortableServer::POA_ptr poa, const PortableServer::ObjectId& id) {
  return path_of(poa) + ':' + text_of(id);
}

std::string called_object() {
  int none = 0;
  const CORBA::ORB_var orb = CORBA::ORB_init(none, nullptr);  // the one that is there
  const CORBA::Object_var found = orb->resolve_initial_references("POACurrent");
  const PortableServer::Current_var current = PortableServer::Current::_narrow(found);
  const PortableServer::POA_var poa = current->get_POA();
  const PortableServer::ObjectId_var id = current->get_object_id();
  return object_name(poa, id);
}

void Shared::add_note(const std::string& object) {
  const std::lock_guard lock(mutex_);
  ++notes_[object];
}

CORBA::Long Shared::notes(const std::string& object) {
  const std::lock_guard lock(mutex_);
  const auto found = notes_.find(object);
  return found == notes_.end() ? 0 : found->second;
}

void Shared::forget(const std::string& object) {
  const std::lock_guard lock(mutex_);
  notes_.erase(object);
}

void Shared::born(PortableServer::ServantBase* servant) {
  const std::lock_guard lock(mutex_);
  servants_.insert(servant);
}

void Shared::gone(PortableServer::ServantBase* servant) {
  const std::lock_guard lock(mutex_);
  servants_.erase(servant);
}

CORBA::Long Shared::alive() {
  const std::lock_guard lock(mutex_);
  return static_cast<CORBA::Long>(servants_.size());
}

void Shared::delete_idle() {
  std::set<PortableServer::ServantBase*> servants;
  {
    const std::lock_guard lock(mutex_);
    servants = servants_;
  }
  for (PortableServer::ServantBase* servant : servants) {
    if (servant->get_ref_counter() == 0) delete servant;
  }
}

char* EchoServant::echo_string(const char* s) { return CORBA::string_dup(s); }

// Wraps around, as the processor does, where the sum does not fit.
CORBA::Long EchoServant::add(CORBA::Long a, CORBA::Long b) {
  return static_cast<CORBA::Long>(static_cast<CORBA::ULong>(a) + static_cast<CORBA::ULong>(b));
}

Demo::Octets* EchoServant::echo_octets(const Demo::Octets& data) { return new Demo::Octets(data); }

void EchoServant::refuse(const char* why, CORBA::Long code) { throw Demo::Refused(why, code); }

void EchoServant::note(const char*) { shared_.add_note(called_object()); }

CORBA::Long EchoServant::notes() { return shared_.notes(called_object()); }

char* EchoServant::who() { return CORBA::string_dup(called_object().c_str()); }

void EchoServant::sleep_ms(CORBA::ULong ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }
