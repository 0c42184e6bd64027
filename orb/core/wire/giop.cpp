#include "wire/giop.h"

#include <bit>
#include <cstring>
#include <new>

#include "wire/cdr_chain.h"
#include "wire/iiop_profile.h"

// Layouts, in CDR, aligned from the first octet of the message:
//
//   message  = "GIOP" major[1] minor[1] flags[1] type[1] size:u32 body
//              flags: 1 little-endian, 2 fragments follow (not in 1.0)
//   request  = 1.0: contexts id:u32 response[1] key:octets operation:string principal:octets
//              1.1: contexts id:u32 response[1] 0[3] key:octets operation:string principal:octets
//              1.2: id:u32 response[1] 0[3] target operation:string contexts
//   locate   = 1.0, 1.1: id:u32 key:octets;   1.2: id:u32 target
//   reply    = 1.0, 1.1: contexts id:u32 status:u32;   1.2: id:u32 status:u32 contexts
//   locate reply = id:u32 status:u32
//   contexts = count:u32 (id:u32 octets)*               of a request: none, or its code sets
//   target   = 0:u16 key:octets | 1:u16 profile | 2:u16 selected:u32 type-id:string count:u32 profile*
//   profile  = tag:u32 octets
//
// The bodies of requests and replies of 1.2 start on a multiple of 8 when there are any.

namespace zrsv::giop {
namespace {

constexpr bool native_little = std::endian::native == std::endian::little;
constexpr uint32_t minor_offset = 5, flags_offset = 6, type_offset = 7, size_offset = 8;
constexpr unsigned char little_flag = 1, more_flag = 2;
enum AddressKind : uint16_t { key_address = 0, profile_address = 1, reference_address = 2 };

Reader start(CDR* cdr, uint8_t minor) {
  cdr->minor_version = minor;
  return Reader(cdr);
}

void skip_contexts(Reader* in) {
  for (uint32_t left = in->count(8); left > 0 && in->ok(); --left) {
    in->u32();
    in->octets();
  }
}

/// Passes over the context that most requests have: UTF-8 and UTF-16, little-endian. It is known by its octets, as
/// each request of a small call would pay for reading it.
bool take_usual_context(CDR* cdr) {
  constexpr std::string_view usual{
      "\1\0\0\0"
      "\14\0\0\0"
      "\1\0\0\0"
      "\1\0\1\5"
      "\x9\1\1\0",
      20};
  const bool little = native_little != (cdr->swap != 0);
  const auto left = static_cast<std::size_t>(cdr->in_end - cdr->in_next);
  if (!little || cdr->in_cuts || left < usual.size() ||
      std::memcmp(cdr->in_next, usual.data(), usual.size()) != 0)
    return false;
  cdr->in_next += usual.size();
  return true;
}

/// The contexts of a request.
void read_contexts(CDR* cdr, Reader* in, RequestHead* head) {
  const unsigned char* const start = cdr->in_next;
  uint32_t left = in->count(8);
  if (left == 1 && take_usual_context(cdr)) {
    head->code_sets = {ZR_TEXT_NATIVE, ZR_TEXT_NATIVE, true};
    return;
  }
  if (left != 0) head->contexts = start;
  for (; left > 0 && in->ok(); --left) {
    const uint32_t id = in->u32();
    const std::string_view octets = in->octets();
    if (id == context_code_sets && in->ok() && !read_code_sets_context(octets, &head->code_sets)) in->fail();
    if (id == chain_context) head->chain = octets;
  }
}

void write_contexts(Writer* out, const CodeSets& sets, std::string_view chain,
                    std::span<const ServiceContext> more) {
  out->u32(static_cast<uint32_t>(more.size()) + sets.said + !chain.empty());
  if (sets.said) write_code_sets_context(out, sets);
  if (!chain.empty()) out->u32(chain_context).octets(chain);
  for (const ServiceContext& context : more) out->u32(context.id).octets(context.octets);
}

ContextViews list_contexts(Reader* in) {
  ContextViews all;
  for (uint32_t left = in->count(8); left > 0 && in->ok(); --left) {
    const uint32_t id = in->u32();
    all.push_back({id, in->octets()});
  }
  if (!in->ok()) all.clear();
  return all;
}

constexpr std::size_t aligned(std::size_t at, std::size_t to) { return (at + to - 1) / to * to; }

/// Context of our own: before 1.2 nothing aligns a reply's body to 8, so a context of this length does where the others
/// leave it at 4.
constexpr uint32_t padding_context = 0x4B510002;
constexpr std::size_t padding_length = 4;

bool needs_padding(std::span<const ServiceContext> contexts) {
  std::size_t at = header_size + sizeof(uint32_t);
  for (const ServiceContext& context : contexts) at = aligned(at, 4) + 8 + context.octets.size();
  return aligned(at, 4) % 8 != 0;
}

/// The key in a tagged profile; empty when it is not one of IIOP 1.
std::string_view profile_key(Reader* in) {
  const uint32_t tag = in->u32();
  const std::string_view octets = in->octets();
  if (!in->ok() || tag != profile_iiop) return {};
  ProfileView profile;
  if (read_iiop_profile(octets, &profile, nullptr) == ProfileRead::Malformed) in->fail();
  return profile.key;
}

std::string_view selected_key(Reader* in) {
  const uint32_t selected = in->u32();
  in->text();  // type id
  const uint32_t count = in->count(8);
  if (selected >= count) in->fail();
  std::string_view key;
  for (uint32_t i = 0; i < count && in->ok(); ++i) {
    const std::string_view found = profile_key(in);
    if (i == selected) key = found;
  }
  return key;
}

std::string_view read_target(Reader* in) {
  switch (in->u16()) {
    case key_address:
      return in->octets();
    case profile_address:
      return profile_key(in);
    case reference_address:
      return selected_key(in);
    default:
      in->fail();
      return {};
  }
}

/// Steps to the body of a 1.2 message; without a body there is no padding either.
void skip_to_body(CDR* cdr) {
  const auto at = static_cast<std::size_t>(cdr->in_next - cdr->in_base);
  const std::size_t pad = (8 - at % 8) % 8;
  cdr->in_next = pad < OM_cdr_remaining(cdr) ? cdr->in_next + pad : cdr->in_end;
}

uint32_t word_at(const unsigned char* octets, const Header& header) {
  uint32_t word;
  std::memcpy(&word, octets, sizeof word);
  return needs_swap(header) ? __builtin_bswap32(word) : word;
}

}  // namespace

const char* read_header(const unsigned char* octets, uint32_t max_message, Header* header) {
  if (std::memcmp(octets, "GIOP", 4) != 0) return "magic";
  if (octets[4] != 1 || octets[minor_offset] > 2) return "version";
  header->minor = octets[minor_offset];
  header->cuts = false;
  header->little = octets[flags_offset] & little_flag;
  header->more = header->minor >= 1 && (octets[flags_offset] & more_flag);
  const Type last = header->minor >= 1 ? Type::Fragment : Type::MessageError;
  if (octets[type_offset] > static_cast<unsigned char>(last)) return "type";
  header->type = static_cast<Type>(octets[type_offset]);
  header->size = word_at(octets + size_offset, *header);
  return header->size > max_message ? "length" : nullptr;
}

void write_header(unsigned char* octets, const Header& header) {
  const int flags = (header.little ? little_flag : 0) | (header.more ? more_flag : 0);
  const unsigned char start[] = {'G',
                                 'I',
                                 'O',
                                 'P',
                                 1,
                                 header.minor,
                                 static_cast<unsigned char>(flags),
                                 static_cast<unsigned char>(header.type)};
  const uint32_t size = needs_swap(header) ? __builtin_bswap32(header.size) : header.size;
  std::memcpy(octets, start, sizeof start);
  std::memcpy(octets + size_offset, &size, sizeof size);
}

uint8_t minor_of(const unsigned char* octets) { return octets[minor_offset]; }

namespace {

/// Where the cuts stand behind a message of that length.
constexpr std::size_t cuts_at(std::size_t length) {
  return (length + alignof(ZR_cdr_cuts) - 1) / alignof(ZR_cdr_cuts) * alignof(ZR_cdr_cuts);
}

}  // namespace

void open_message(CDR* cdr, const Header& header, const unsigned char* message) {
  const std::size_t length = header_size + std::size_t{header.size};
  OM_cdr_open_decode(cdr, message, static_cast<uint32_t>(length), needs_swap(header));
  cdr->in_next += header_size;
  cdr->minor_version = header.minor;
  if (!header.cuts) return;
  cdr->in_cuts = reinterpret_cast<const ZR_cdr_cuts*>(message + cuts_at(length));
  ZR_cdr_enter_part(cdr);
}

bool put_cuts(Buffer* message, std::span<const uint32_t> offsets) {
  const std::size_t length = message->size(), at = cuts_at(length);
  const std::size_t size = sizeof(ZR_cdr_cuts) + offsets.size() * sizeof(const unsigned char*);
  if (!message->reserve(at + size - length)) return false;
  auto* const cuts = new (message->data() + at) ZR_cdr_cuts;
  cuts->end = message->data() + length;
  cuts->begin = reinterpret_cast<const unsigned char**>(cuts + 1);
  cuts->count = static_cast<uint32_t>(offsets.size());
  for (std::size_t i = 0; i < offsets.size(); ++i) cuts->begin[i] = message->data() + offsets[i];
  return true;
}

bool needs_swap(const Header& header) { return header.little != native_little; }

bool read_request(CDR* cdr, uint8_t minor, RequestHead* head) {
  Reader in = start(cdr, minor);
  if (minor < 2) read_contexts(cdr, &in, head);
  head->id = in.u32();
  head->response_expected = (in.u8() & 1) != 0;
  if (minor >= 1) in.raw(3);
  head->key = minor < 2 ? in.octets() : read_target(&in);
  head->operation = in.text().data();
  if (minor < 2) {
    in.octets();  // principal
  } else {
    read_contexts(cdr, &in, head);
    skip_to_body(cdr);
  }
  return in.ok();
}

ContextViews request_contexts(CDR stream, const RequestHead& head) {
  if (!head.contexts) return {};
  stream.in_next = head.contexts;
  if (stream.in_cuts) ZR_cdr_enter_part(&stream);
  Reader in = start(&stream, stream.minor_version);
  return list_contexts(&in);
}

bool read_id_1_1(CDR* cdr, uint32_t* id) {
  Reader in = start(cdr, 1);
  skip_contexts(&in);
  *id = in.u32();
  return in.ok();
}

uint32_t read_id_1_2(const unsigned char* message, const Header& header) {
  return word_at(message + header_size, header);
}

bool read_locate_request(CDR* cdr, uint8_t minor, RequestHead* head) {
  Reader in = start(cdr, minor);
  head->id = in.u32();
  head->response_expected = true;
  head->key = minor < 2 ? in.octets() : read_target(&in);
  head->operation = "";
  return in.ok();
}

bool read_reply(CDR* cdr, uint8_t minor, ReplyHead* head) {
  Reader in = start(cdr, minor);
  if (minor < 2) skip_contexts(&in);
  head->id = in.u32();
  head->status = in.u32();
  if (minor >= 2) {
    skip_contexts(&in);
    skip_to_body(cdr);
  }
  const uint32_t last = minor >= 2 ? 5 : 3;  // 1.2 added two
  return in.ok() && head->status <= last;
}

ContextViews reply_contexts(const Buffer& message) {
  CDR cdr{};
  Header header;
  if (message.size() < header_size || read_header(message.data(), UINT32_MAX, &header)) return {};
  open_message(&cdr, header, message.data());
  Reader in = start(&cdr, header.minor);
  if (header.minor >= 2) in.u32(), in.u32();  // id, status
  return list_contexts(&in);
}

bool begin_message(CDR* cdr, uint8_t minor, Type type) {
  cdr->minor_version = minor;
  cdr->out_next = cdr->out_base;
  if (cdr->apart.octets) Apart::take(cdr);
  unsigned char octets[header_size];
  write_empty(octets, minor, type);
  return Writer(cdr).raw(as_view(octets, sizeof octets)).ok();
}

bool begin_request(CDR* cdr, uint8_t minor, uint32_t id, bool response_expected, std::string_view key,
                   std::string_view operation, const CodeSets& sets, std::string_view chain,
                   std::span<const ServiceContext> more) {
  if (!begin_message(cdr, minor, Type::Request)) return false;
  Writer out(cdr);
  if (minor < 2) write_contexts(&out, sets, chain, more);
  out.u32(id);
  out.u8(static_cast<uint8_t>(!response_expected ? 0
                              : minor >= 2       ? 3
                                                 : 1));  // 3: the reply comes from the object itself
  if (minor >= 1) out.raw({"\0\0", 3});            // NOLINT(bugprone-string-constructor): with the last NUL
  if (minor >= 2) out.u16(key_address);
  out.octets(key).text(operation);
  minor < 2 ? void(out.u32(0)) : write_contexts(&out, sets, chain, more);  // no principal
  return out.ok();
}

bool begin_reply(CDR* cdr, uint8_t minor, uint32_t id, uint32_t status) {
  if (!begin_message(cdr, minor, Type::Reply)) return false;
  Writer out(cdr);
  if (minor < 2) return out.u32(0).u32(id).u32(status).ok();
  return out.u32(id).u32(status).u32(0).ok();
}

bool begin_reply_with(CDR* cdr, uint8_t minor, uint32_t id, uint32_t status,
                      std::span<const ServiceContext> contexts) {
  if (!begin_message(cdr, minor, Type::Reply)) return false;
  Writer out(cdr);
  if (minor >= 2) out.u32(id).u32(status);
  const bool pad = minor < 2 && needs_padding(contexts);
  out.u32(static_cast<uint32_t>(contexts.size()) + pad);
  for (const ServiceContext& context : contexts) out.u32(context.id).octets(context.octets);
  if (pad) out.u32(padding_context).octets({"\0\0\0", padding_length});
  if (minor < 2) out.u32(id).u32(status);
  return out.ok();
}

uint32_t status_of(const unsigned char* reply, uint8_t minor) {
  uint32_t status = 0;
  std::memcpy(&status, reply + header_size + (minor >= 2 ? 4 : 8), sizeof status);
  return status;
}

bool begin_locate_reply(CDR* cdr, uint8_t minor, uint32_t id, LocateStatus status) {
  return begin_message(cdr, minor, Type::LocateReply) &&
         Writer(cdr).u32(id).u32(static_cast<uint32_t>(status)).ok();
}

bool align_body(CDR* cdr, uint8_t minor) {
  if (minor < 2) return true;
  const auto at = static_cast<std::size_t>(cdr->out_next - cdr->out_base);
  return put_octets(cdr, {"\0\0\0\0\0\0\0", (8 - at % 8) % 8});
}

bool pad_request_1_1(CDR* cdr, uint32_t octets) {
  std::memcpy(cdr->out_next - sizeof octets, &octets, sizeof octets);
  return put_octets(cdr, std::string_view("\0\0\0\0\0\0\0", octets));
}

void end_message(CDR* cdr) {
  const uint32_t size = static_cast<uint32_t>(cdr->out_next - cdr->out_base) + cdr->apart.size - header_size;
  std::memcpy(cdr->out_base + size_offset, &size, sizeof size);
}

namespace {

/// Where the id stands in a request that has no contexts but that one.
std::size_t id_at(uint8_t minor, bool said) {
  constexpr std::size_t none = 4, with_code_sets = 24;
  return header_size + (minor >= 2 ? 0 : said ? with_code_sets : none);
}

}  // namespace

void set_request_id(unsigned char* message, uint8_t minor, bool said, uint32_t id) {
  std::memcpy(message + id_at(minor, said), &id, sizeof id);
}

void set_request_key(unsigned char* message, uint8_t minor, bool said, std::string_view key) {
  const std::size_t behind_id = minor >= 2 ? 16 : 12;
  std::memcpy(message + id_at(minor, said) + behind_id, key.data(), key.size());
}

void write_empty(unsigned char* octets, uint8_t minor, Type type) {
  write_header(octets, {.minor = minor, .little = native_little, .type = type});
}

void write_cancel(unsigned char* octets, uint8_t minor, uint32_t id) {
  constexpr uint32_t body = cancel_size - header_size;
  write_header(octets, {.minor = minor, .little = native_little, .type = Type::CancelRequest, .size = body});
  std::memcpy(octets + header_size, &id, sizeof id);
}

}  // namespace zrsv::giop
