// The message of a call: its header, kept for the next call on the same object, and the body behind it.
#pragma once

#include "requests/client_request.h"

namespace zrsv {

/// The key in messages to that address of the target.
std::string_view key_for(const Reference& target, std::size_t address);
/// The lowest version of all places that the call may go to, so that the same body fits them all.
uint8_t version_for(const ClientRequest& request);
/// What the texts of a call to `target` are in. Within the process nothing needs to be said.
CodeSets code_sets_for(const ClientRequest& request, const Reference& target);

/// Starts the message in the memory of the last one, or else of the last reply. False without memory.
bool begin_message(ClientRequest* request);
/// It has all its arguments.
void end_message(ClientRequest* request);
/// Octets encoded so far.
inline std::size_t encoded(const CDR& cdr) { return static_cast<std::size_t>(cdr.out_next - cdr.out_base); }
/// Octets of the message behind GIOP's header.
std::size_t body_size(const ClientRequest& request);

/// Puts a header with that key in front of the body, in the place of the one that is there. False without memory.
bool put_head(ClientRequest* request, std::string_view key);
/// The same call under another object key.
bool address_anew(ClientRequest* request, std::string_view key);
/// The whole message, out of the request's stream; of a bare one it is made now. Empty without memory.
Buffer take_message(ClientRequest& request);

/// The time limit runs from the moment that the request is ready to go; that of a bare one when it has to wait.
void start_clock(ClientRequest& request);

}  // namespace zrsv
