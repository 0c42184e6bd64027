#include "wire/iiop_profile.h"

#include "wire/code_sets.h"

// Layout, an encapsulation (a byte-order octet, then CDR values aligned by themselves):
//
//   profile    = byte-order[1] major[1] minor[1] host:string port:u16 key:octets [count:u32 component*]
//   component  = tag:u32 octets                    ([..]: from version 1.1 on)
//   alternate  = byte-order[1] host:string port:u16

namespace zrsv {
namespace {

void read_components(Reader* in, std::vector<Tagged>* components) {
  for (uint32_t left = in->count(8); left > 0 && in->ok(); --left) {
    const uint32_t tag = in->u32();
    const std::string_view octets = in->octets();
    if (components && in->ok()) components->push_back({tag, std::string(octets)});
  }
}

void write_address(Writer* out, const Endpoint& endpoint) { out->text(endpoint.host).u16(endpoint.port); }

void write_components(Writer* out, std::span<const Endpoint> alternates) {
  out->u32(static_cast<uint32_t>(1 + alternates.size()));
  write_code_sets_component(out);
  for (const Endpoint& endpoint : alternates) {
    out->u32(component_alternate_iiop);
    const std::size_t opened = out->open();
    write_address(out, endpoint);
    out->close(opened);
  }
}

}  // namespace

ProfileRead read_iiop_profile(std::string_view octets, ProfileView* profile,
                              std::vector<Tagged>* components) {
  CDR cdr;
  if (!open_encapsulation(octets, &cdr)) return ProfileRead::Malformed;
  Reader in(&cdr);
  const uint8_t major = in.u8();
  const uint8_t minor = in.u8();
  if (in.ok() && major != 1) return ProfileRead::UnknownVersion;
  profile->minor = minor < 2 ? minor : uint8_t{2};
  profile->host = in.text();
  profile->port = in.u16();
  profile->key = in.octets();
  if (minor >= 1) read_components(&in, components);
  return in.ok() && (minor > 2 || in.at_end()) ? ProfileRead::Ok : ProfileRead::Malformed;
}

bool read_alternate_address(std::string_view octets, Endpoint* address) {
  CDR cdr;
  if (!open_encapsulation(octets, &cdr)) return false;
  Reader in(&cdr);
  address->host = in.text();
  address->port = in.u16();
  return in.ok();
}

void write_iiop_profile(Writer* out, uint8_t minor, std::span<const Endpoint> endpoints,
                        std::string_view key) {
  out->u32(profile_iiop);
  const std::size_t opened = out->open();
  out->u8(1).u8(minor);
  write_address(out, endpoints.front());
  out->octets(key);
  if (minor >= 1) write_components(out, endpoints.subspan(1));
  out->close(opened);
}

}  // namespace zrsv
