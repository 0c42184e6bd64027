// GIOP messages: headers read and written. Pure functions over octets; no sockets here.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "base/buffer.h"
#include "wire/code_sets.h"
#include "zrsv/request_watch.h"

namespace zrsv::giop {

enum class Type : uint8_t {
  Request = 0,
  Reply = 1,
  CancelRequest = 2,
  LocateRequest = 3,
  LocateReply = 4,
  CloseConnection = 5,
  MessageError = 6,
  Fragment = 7
};

enum class LocateStatus : uint32_t { UnknownObject = 0, ObjectHere = 1, ObjectForward = 2 };

inline constexpr uint32_t header_size = 12;
/// Id of the service context of our own that says what led to a request (call_chain.h).
inline constexpr uint32_t chain_context = 0x4B510001;

/// The twelve octets in front of every message.
struct Header {
  uint8_t minor = 2;
  bool little = true;
  bool more = false;  // fragments follow
  Type type = Type::Request;
  uint32_t size = 0;  // of the body
  bool cuts = false;  // the message was joined of 1.1 fragments; where, stands behind it
};

/// A stream over a whole message, past its header.
void open_message(CDR* cdr, const Header& header, const unsigned char* message);

/// Keeps where the fragments of a joined message begin, behind it in its memory. The message must not move
/// afterwards. False when memory is short.
bool put_cuts(Buffer* message, std::span<const uint32_t> offsets);

/// Reads a header from 12 octets. Null on success; else what is wrong with it ("magic", "version", "type",
/// "length").
const char* read_header(const unsigned char* octets, uint32_t max_message, Header* header);

/// Writes it into 12 octets.
void write_header(unsigned char* octets, const Header& header);
/// The minor version that a header of 12 octets says.
uint8_t minor_of(const unsigned char* octets);

/// True when this machine's byte order is not the message's.
bool needs_swap(const Header& header);

/// A request or locate request, decoded in place: views into the message.
struct RequestHead {
  uint32_t id = 0;
  bool response_expected = false;
  std::string_view key;        // object key; empty when the address names no IIOP profile
  const char* operation = "";  // NUL-terminated in place; "" for a locate request
  CodeSets code_sets = unsaid_code_sets;
  std::string_view chain;                   // what led to it (call_chain.h); as a rule nothing
  const unsigned char* contexts = nullptr;  // where they start, unless there are only the usual ones
};

/// `cdr` stands at the body's start (in_base = start of the whole message, so that alignment is right);
/// afterwards it stands at the arguments. False when malformed.
bool read_request(CDR* cdr, uint8_t minor, RequestHead* head);
/// The id of a request of 1.0 or 1.1, of which the start is there. False when that does not reach.
bool read_id_1_1(CDR* cdr, uint32_t* id);
/// The same of 1.2, where the id is the first member of every body that may be fragmented, and of each fragment. The
/// body has 4 octets at least.
uint32_t read_id_1_2(const unsigned char* message, const Header& header);
bool read_locate_request(CDR* cdr, uint8_t minor, RequestHead* head);

/// The contexts of a request whose head was read from that stream, but for the usual ones. None when malformed.
ContextViews request_contexts(CDR stream, const RequestHead& head);

/// A reply's head; `status` is a ZR_REPLY_... value, or 4 (LOC_FORWARD_PERM) and 5 (NEEDS_ADDRESSING_MODE)
/// of 1.2.
struct ReplyHead {
  uint32_t id = 0;
  uint32_t status = 0;
};
bool read_reply(CDR* cdr, uint8_t minor, ReplyHead* head);
/// The contexts of a whole reply message. None when malformed.
ContextViews reply_contexts(const Buffer& message);

/// Start a message in an empty encoding stream: the GIOP header (size 0 for now, this machine's byte order)
/// and the message's own head. With 1.2 the body is aligned to 8 by `align_body`, called once before its
/// first octet is written.
bool begin_message(CDR* cdr, uint8_t minor, Type type);
/// `sets` go into a service context where they are to be said, and so does a chain that is not empty; `more` behind
/// them.
bool begin_request(CDR* cdr, uint8_t minor, uint32_t id, bool response_expected, std::string_view key,
                   std::string_view operation, const CodeSets& sets = unsaid_code_sets,
                   std::string_view chain = {}, std::span<const ServiceContext> more = {});
bool begin_reply(CDR* cdr, uint8_t minor, uint32_t id, uint32_t status);
/// The same with contexts. A body that stood at `reply_body` keeps its alignment.
bool begin_reply_with(CDR* cdr, uint8_t minor, uint32_t id, uint32_t status,
                      std::span<const ServiceContext> contexts);
/// Where the body of a reply without contexts starts, in every version; and the status of one.
inline constexpr uint32_t reply_body = 24;
uint32_t status_of(const unsigned char* reply, uint8_t minor);
bool begin_locate_reply(CDR* cdr, uint8_t minor, uint32_t id, LocateStatus status);
bool align_body(CDR* cdr, uint8_t minor);
/// Before 1.2 nothing aligns the body to 8: lets the last member of a request's header, an octet sequence that nobody reads,
/// grow by less than 8 octets. Called right after begin_request.
bool pad_request_1_1(CDR* cdr, uint32_t octets);
/// Patches the size into the header. The message is out_base .. out_next.
void end_message(CDR* cdr);
/// Makes a request that was begun, with or without code sets said and without a chain, that of another id.
void set_request_id(unsigned char* message, uint8_t minor, bool said, uint32_t id);
/// The same for another key of as many octets.
void set_request_key(unsigned char* message, uint8_t minor, bool said, std::string_view key);

/// The whole of a message without a body (CloseConnection, MessageError): 12 octets.
void write_empty(unsigned char* octets, uint8_t minor, Type type);
/// The whole of a CancelRequest.
inline constexpr uint32_t cancel_size = header_size + 4;
void write_cancel(unsigned char* octets, uint8_t minor, uint32_t id);

}  // namespace zrsv::giop
