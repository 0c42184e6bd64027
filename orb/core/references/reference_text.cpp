#include <algorithm>
#include <cctype>
#include <cstring>

#include "base/endpoint.h"
#include "references/environment.h"
#include "wire/cdr_chain.h"
#include "wire/iiop_profile.h"

// Texts of references:
//
//   ior      = "IOR:" two hexadecimal digits an octet, of an encapsulation that holds the reference
//   corbaloc = "corbaloc:" address *("," address) "/" key
//   address  = ["iiop"] ":" [version "@"] host [":" port]        version 1.0 and port 2809 when left out
//   version  = "1.0" | "1.1" | "1.2"
//   host     = name | IPv4 address | "[" IPv6 address "]"
//   key      = letters, digits, marks and "%" with two hexadecimal digits for any octet; not empty

namespace zrsv {
namespace {

constexpr uint16_t corbaloc_port = 2809;
constexpr std::string_view digits = "0123456789ABCDEF";
constexpr std::string_view key_marks = ";/:?@&=+$,-_.!~*'()";

/// The value of a hexadecimal digit, or -1.
int hex_value(char c) {
  const std::size_t at = digits.find(static_cast<char>(std::toupper(static_cast<unsigned char>(c))));
  return at == digits.npos ? -1 : static_cast<int>(at);
}

/// The octet that two digits name, or -1.
int hex_octet(std::string_view two) {
  if (two.size() < 2 || hex_value(two[0]) < 0 || hex_value(two[1]) < 0) return -1;
  return hex_value(two[0]) << 4 | hex_value(two[1]);
}

void append_hex(std::string* to, unsigned char octet) {
  *to += digits[octet >> 4];
  *to += digits[octet & 15];
}

/// Takes `prefix`, in any case, off the front.
bool strip(std::string_view* text, std::string_view prefix) {
  const auto same = [](char a, char b) {
    return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
  };
  if (text->size() < prefix.size() || !std::equal(prefix.begin(), prefix.end(), text->begin(), same))
    return false;
  text->remove_prefix(prefix.size());
  return true;
}

/// Reads what follows "IOR:"; nil is a null reference.
bool from_hex(std::string_view hex, Ref<Reference>* out) {
  if (hex.size() % 2 != 0) return false;
  std::string octets;
  octets.reserve(hex.size() / 2);
  for (std::size_t i = 0; i < hex.size(); i += 2) {
    const int octet = hex_octet(hex.substr(i));
    if (octet < 0) return false;
    octets += static_cast<char>(octet);
  }
  CDR cdr;
  return open_encapsulation(octets, &cdr) && read_reference(&cdr, out) && OM_cdr_remaining(&cdr) == 0;
}

bool unescape(std::string_view text, std::string* key) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '%') {
      const int octet = hex_octet(text.substr(i + 1));
      if (octet < 0) return false;
      *key += static_cast<char>(octet);
      i += 2;
    } else if (std::isalnum(static_cast<unsigned char>(c)) || key_marks.find(c) != key_marks.npos) {
      *key += c;
    } else {
      return false;
    }
  }
  return !key->empty();
}

/// "1.2@": the minor version in front of an address.
bool strip_version(std::string_view* address, uint8_t* minor) {
  *minor = 0;
  const std::size_t at = address->find('@');
  if (at == address->npos) return true;
  const std::string_view version = address->substr(0, at);
  if (version.size() != 3 || !version.starts_with("1.") || version[2] < '0' || version[2] > '2') return false;
  *minor = static_cast<uint8_t>(version[2] - '0');
  address->remove_prefix(at + 1);
  return true;
}

/// The octets of a profile for one address, as another server would write it.
bool address_profile(std::string_view address, const std::string& key, Tagged* profile) {
  uint8_t minor = 0;
  if (!strip(&address, "iiop:") && !strip(&address, ":")) return false;
  if (!strip_version(&address, &minor)) return false;
  const std::optional<Endpoint> endpoint = parse_endpoint(address, corbaloc_port);
  if (!endpoint || endpoint->port == 0) return false;
  CDR cdr;
  if (!OM_cdr_open_encapsulation(&cdr)) return false;
  Writer out(&cdr);
  out.u8(1).u8(minor).text(endpoint->host).u16(endpoint->port).octets(key);
  if (minor >= 1) out.u32(0);
  if (out.ok())
    *profile = {profile_iiop, std::string(as_view(cdr.out_base, std::size_t(cdr.out_next - cdr.out_base)))};
  OM_cdr_close(&cdr);
  return out.ok();
}

/// Reads what follows "corbaloc:".
bool from_corbaloc(std::string_view text, Ref<Reference>* out) {
  const std::size_t slash = text.find('/');
  std::string key;
  if (slash == text.npos || !unescape(text.substr(slash + 1), &key)) return false;
  std::string_view addresses = text.substr(0, slash);
  std::vector<Tagged> profiles;
  for (bool more = true; more;) {
    const std::size_t comma = addresses.find(',');
    more = comma != addresses.npos;
    if (!address_profile(addresses.substr(0, comma), key, &profiles.emplace_back())) return false;
    if (more) addresses.remove_prefix(comma + 1);
  }
  *out = Reference::from_profiles({}, std::move(profiles));
  return static_cast<bool>(*out);
}

bool from_text(const char* text, Ref<Reference>* out) {
  std::string_view rest = text ? text : "";
  if (strip(&rest, "IOR:")) return from_hex(rest, out);
  return strip(&rest, "corbaloc:") && from_corbaloc(rest, out);
}

/// A copy for the caller, freed with CORBA_free.
char* hand_out(const std::string& text) {
  char* copy = ::strdup(text.c_str());
  if (!copy) throw std::bad_alloc();
  return copy;
}

char* to_ior(const Reference* reference, CORBA_Environment* ev) {
  CDR cdr;
  if (!OM_cdr_open_encapsulation(&cdr)) throw std::bad_alloc();
  const bool written = write_reference(&cdr, reference);
  std::string text = "IOR:";
  for (const unsigned char* at = cdr.out_base; at != cdr.out_next; ++at) append_hex(&text, *at);
  OM_cdr_close(&cdr);
  if (written) return hand_out(text);
  raise_standard(ev, reference->is_local() ? "BAD_INV_ORDER" : "NO_MEMORY");  // no end point is open yet
  return nullptr;
}

std::string address_text(uint8_t minor, const Endpoint& endpoint) {
  return "iiop:1." + std::to_string(minor) + "@" + endpoint_text(endpoint);
}

char* to_corbaloc(const Reference& reference, CORBA_Environment* ev) {
  std::string text;
  const auto add = [&](uint8_t minor, const Endpoint& endpoint) {
    text += (text.empty() ? "corbaloc:" : ",") + address_text(minor, endpoint);
  };
  if (reference.is_local()) {
    for (const Endpoint& endpoint : published_endpoints()) add(2, endpoint);
  }
  for (const IiopProfile& profile : reference.iiop()) {
    if (profile.key == reference.key()) add(profile.minor, {profile.host, profile.port});
  }
  if (text.empty() || reference.key().empty()) {
    raise_standard(ev, "INV_OBJREF");
    return nullptr;
  }
  text += '/';
  for (char c : reference.key()) {
    if (std::isalnum(static_cast<unsigned char>(c)) || key_marks.find(c) != key_marks.npos) {
      text += c;
    } else {
      text += '%';
      append_hex(&text, static_cast<unsigned char>(c));
    }
  }
  return hand_out(text);
}

}  // namespace
}  // namespace zrsv

using namespace zrsv;

char* CORBA_ORB_object_to_string(void* /*orb*/, void* object, CORBA_Environment* ev) {
  return guarded(ev, [&] { return to_ior(as_reference(object), ev); });
}

void* CORBA_ORB_string_to_object(void* /*orb*/, const char* text, CORBA_Environment* ev) {
  return guarded(ev, [&]() -> void* {
    Ref<Reference> made;
    if (from_text(text, &made)) return made.release();
    raise_standard(ev, "BAD_PARAM");
    return nullptr;
  });
}

char* ZR_object_to_corbaloc(void* /*orb*/, void* object, CORBA_Environment* ev) {
  return guarded(ev, [&]() -> char* {
    if (object) return to_corbaloc(*as_reference(object), ev);
    raise_standard(ev, "BAD_PARAM");
    return nullptr;
  });
}
