/* CDR streams: one value each way, by the stream's direction (CORBA, "CDR Transfer Syntax"). What C++ code moves in
 * numbers stands inline in zrsv/cdr_value.h. */
#ifndef ZRSV_CDR_H
#define ZRSV_CDR_H

#include "zrsv/base.h"

#ifdef __cplusplus
extern "C" {
#endif

enum { CDR_ENCODE = 0, CDR_DECODE = 1 };

/* Code sets of a stream's texts. In a program they are UTF-8, and UTF-32 in wide characters. */
enum {
  ZR_TEXT_NATIVE = 0, /* UTF-8, not looked at; UTF-16 */
  ZR_TEXT_ISO_8859_1 = 1,
  ZR_TEXT_UNKNOWN = 2 /* one that is not known here: no text travels */
};
/* Why a primitive failed. */
enum {
  ZR_UNCONVERTIBLE = 1,   /* a text that is none, or that the peer's code set lacks: DATA_CONVERSION */
  ZR_UNKNOWN_CODE_SET = 2 /* CODESET_INCOMPATIBLE */
};

/* Where the fragments of a GIOP 1.1 message begin in what they were joined to. Alignment in each of them counts
 * from its own header. */
typedef struct ZR_cdr_cuts {
  const unsigned char* end; /* of the joined octets */
  uint32_t count;
  const unsigned char** begin; /* ascending */
} ZR_cdr_cuts;

/* Encoding: octets of a stream that stay where they are, and stand between those in its buffer. They must stay
 * until the message is out. */
typedef struct ZR_cdr_apart {
  const unsigned char* octets;  /* null: none */
  uint32_t size;                /* a multiple of 8: what comes behind is aligned as if they were not there */
  uint32_t at;                  /* behind so many octets of the buffer */
  void (*release)(void* owner); /* called when they are not needed any more; null: they are the caller's */
  void* owner;
} ZR_cdr_apart;

/* A stream has a window of octets to decode and a buffer to encode into; `direction` says which of the two a
 * primitive works on. Alignment counts from in_base and out_base. Decoding never reads past in_end; encoding
 * grows the buffer. A stream belongs to one thread at a time. Only `direction` is for callers; the rest is
 * for the primitives.
 *
 *   CDR cdr;
 *   OM_cdr_open_decode(&cdr, octets, length, 0);
 *   uint32_t count;
 *   if (!OM_cdr_unsigned_long(&cdr, &count)) return 0; // the octets end before
 *
 * What OM_cdr_open_encode has opened, OM_cdr_close closes; a decoding stream owns nothing. */
typedef struct CDR {
  uint16_t direction;
  unsigned char swap;          /* decoding: the peer's byte order is not ours */
  unsigned char minor_version; /* of the GIOP message, 0 to 2; 2 for encapsulations */
  unsigned char
      unconvertible;      /* why a primitive failed, ZR_UNCONVERTIBLE or ..., when not for want of octets */
  unsigned char narrow;   /* what strings and characters travel in: ZR_TEXT_... */
  unsigned char wide;     /* and wide ones */
  unsigned char in_place; /* decoding: the window outlives what is decoded, which may be views of it */
  const unsigned char* in_base;
  const unsigned char* in_next;
  const unsigned char* in_end;
  unsigned char* out_base; /* malloc'd; owned by the stream */
  unsigned char* out_next;
  unsigned char* out_limit;
  const ZR_cdr_cuts* in_cuts; /* null as a rule; else in_base and in_end are those of the part at in_next */
  unsigned char no_outcome;   /* what is decoded forwards the call: how it ended is not known */
  unsigned char may_leave_apart; /* encoding: who sends the stream can send octets from elsewhere */
  unsigned char leaves_apart;    /* and who encodes sees to it that they stay */
  uint16_t levels;               /* sequences around what is moved now */
  ZR_cdr_apart apart;
  void* in_block; /* decoding: the message in a block that ZR_cdr_take_bytes may hand out; null as a rule */
} CDR;

/* Each primitive moves one value between *value and the stream, aligned as CDR wants it, and returns true;
 * false, and nothing moved, when the window ends too early or memory is short. Any direction but the two
 * fails. */
ZRSV_API unsigned char OM_cdr_boolean(CDR* cdr, unsigned char* value); /* decoded as 0 or 1 */
ZRSV_API unsigned char OM_cdr_octet(CDR* cdr, unsigned char* value);
ZRSV_API unsigned char OM_cdr_char(CDR* cdr, char* value); /* in another code set than UTF-8: ASCII only */
ZRSV_API unsigned char OM_cdr_short(CDR* cdr, int16_t* value);
ZRSV_API unsigned char OM_cdr_unsigned_short(CDR* cdr, uint16_t* value);
ZRSV_API unsigned char OM_cdr_long(CDR* cdr, int32_t* value);
ZRSV_API unsigned char OM_cdr_unsigned_long(CDR* cdr, uint32_t* value);
ZRSV_API unsigned char OM_cdr_long_long(CDR* cdr, int64_t* value);
ZRSV_API unsigned char OM_cdr_unsigned_long_long(CDR* cdr, uint64_t* value);
ZRSV_API unsigned char OM_cdr_float(CDR* cdr, float* value);
ZRSV_API unsigned char OM_cdr_double(CDR* cdr, double* value);
/* An IEEE number of 128 bits on the wire; where this machine's is shorter, decoding gives the nearest one. */
ZRSV_API unsigned char OM_cdr_long_double(CDR* cdr, long double* value);

/* `count` raw octets, not aligned. */
ZRSV_API unsigned char cdr_bytes(CDR* cdr, unsigned char* octets, uint32_t count);

/* As memcpy, at full speed wherever the two are. */
ZRSV_API void ZR_copy_octets(void* to, const void* from, size_t count);
/* Encoding only: as cdr_bytes, but many octets are left apart where the stream allows it. */
ZRSV_API unsigned char ZR_cdr_refer(CDR* cdr, const unsigned char* octets, uint32_t count);
/* Puts what stands apart where it belongs. False when memory is short. */
ZRSV_API unsigned char ZR_cdr_put_together(CDR* cdr);
/* Whether what stands apart is part of the message that the stream decodes, and so stays as long as that. */
ZRSV_API unsigned char ZR_cdr_apart_is_of_message(const CDR* cdr);
/* Decoding only: hands out the next `count` octets, aligned to `align`, together with the memory that the message is
 * in; null, and nothing read, when the stream cannot do that, or when they are not most of it. Once a message. The rest
 * of the window can be read as long as they are not given back, with ZR_give_bytes. */
ZRSV_API void* ZR_cdr_take_bytes(CDR* cdr, uint32_t count, uint32_t align);
ZRSV_API void ZR_give_bytes(void* taken);

/* A string with its length word and NUL, converted where the stream's code set is another one. Decoding hands out
 * a new text (CORBA_free); a length of 0, a missing NUL or a NUL inside fails. Encoding writes *text; null fails. */
ZRSV_API unsigned char OM_cdr_string(CDR* cdr, char** text);

/* Decoding only: the next string, in place. *text points into the window, is NUL-terminated and lives as long
 * as it. A text that has to be converted fails, and OM_cdr_string reads it. */
ZRSV_API unsigned char OM_cdr_string_view(CDR* cdr, const char** text);

/* One Unicode scalar value. Fails in GIOP 1.0, which has no wide characters, and in 1.1 for values above 0xFFFF. */
ZRSV_API unsigned char OM_cdr_wchar(CDR* cdr, wchar_t* value);

/* A wide string in place: UTF-16 units of that byte order, no NUL among them. */
typedef struct OM_wide {
  const unsigned char* octets;
  uint32_t units;
  unsigned char little;
} OM_wide;
/* Decoding only: the next wide string, which lives as long as the window. Fails in GIOP 1.0. */
ZRSV_API unsigned char OM_cdr_read_wide(CDR* cdr, OM_wide* text);
/* Encoding only; the units go over as they are. */
ZRSV_API unsigned char OM_cdr_write_wide(CDR* cdr, const OM_wide* text);
/* Encoding only: a text of one Unicode scalar value a character, up to its NUL. Null fails. */
ZRSV_API unsigned char OM_cdr_write_wstring(CDR* cdr, const wchar_t* text);
/* How many scalar values; false for a text with half a surrogate pair. */
ZRSV_API unsigned char OM_wide_length(const OM_wide* text, uint32_t* length);
/* Writes them, and a NUL. */
ZRSV_API void OM_wide_copy(const OM_wide* text, wchar_t* to);

/* Decoding only: the next `count` octets in place. */
ZRSV_API unsigned char OM_cdr_bytes_view(CDR* cdr, const unsigned char** octets, uint32_t count);

/* An object reference. Encoding writes *handle, null as the nil reference; decoding hands out a new handle,
 * or null. */
ZRSV_API unsigned char OM_cdr_object(CDR* cdr, void** handle);

/* Octets left to decode. */
ZRSV_API uint32_t OM_cdr_remaining(const CDR* cdr);

/* A stream over `length` octets that the caller keeps (decoding; in_base = octets), or an empty one to
 * encode. */
ZRSV_API void OM_cdr_open_decode(CDR* cdr, const unsigned char* octets, uint32_t length, unsigned char swap);
ZRSV_API void OM_cdr_open_encode(CDR* cdr);
/* Makes room for `more` octets at the encoding end. False when memory is short, or when the stream would pass
 * what a message can hold. */
ZRSV_API unsigned char ZR_cdr_grow(CDR* cdr, size_t more) __attribute__((cold));
/* Where `size` octets, aligned to that, are to be read although the part at in_next ends before; null when the
 * window does. For streams with in_cuts. */
ZRSV_API const unsigned char* ZR_cdr_next_part(CDR* cdr, size_t size) __attribute__((cold));
/* Makes in_base and in_end those of the part at in_next. */
ZRSV_API void ZR_cdr_enter_part(CDR* cdr) __attribute__((cold));
/* Frees the stream's own buffer. */
ZRSV_API void OM_cdr_close(CDR* cdr);

/* An encapsulation (length word, then a byte-order octet and the contents, aligned by themselves). Decoding:
 * `inner` becomes a stream over the contents, past the byte-order octet. Encoding: `inner` is a stream whose
 * octets so far are appended to `cdr` as one encapsulation; `OM_cdr_open_encapsulation` starts it with this
 * machine's byte order. */
ZRSV_API unsigned char OM_cdr_read_encapsulation(CDR* cdr, CDR* inner);
ZRSV_API unsigned char OM_cdr_open_encapsulation(CDR* inner);
ZRSV_API unsigned char OM_cdr_write_encapsulation(CDR* cdr, const CDR* inner);

/* Fills `ev` with MARSHAL for a failed primitive, or with what `unconvertible` says, with that completion
 * value; "yes" becomes "maybe" where the stream holds a forward instead of the call's outcome. `cdr` may be null. */
ZRSV_API void SetStdExCDR(CDR* cdr, uint32_t completed, CORBA_Environment* ev);

#ifdef __cplusplus
}
#endif
#endif
