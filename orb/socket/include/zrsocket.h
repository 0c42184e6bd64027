/*
 * Printable text of network addresses. The names can be used from C and C++; all of them may be used from
 * several threads at once.
 */
#ifndef ZRSOCKET_H
#define ZRSOCKET_H

#define ZRSOCKET_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/** Address family of 4-octet IPv4 addresses: the value of AF_INET on this system. */
ZRSOCKET_API extern const int ZR_af_inet;

/** Address family of 16-octet IPv6 addresses: the value of AF_INET6 on this system. */
ZRSOCKET_API extern const int ZR_af_inet6;

/**
 * Writes the printable text of an address, with its terminating zero: dotted decimal for IPv4, and for IPv6
 * the compressed hexadecimal form of RFC 4291, section 2.2.
 *
 * @param family   ZR_af_inet or ZR_af_inet6.
 * @param address  the address in network byte order, 4 or 16 octets as the family says; any alignment.
 * @param text     where the text goes; the caller owns it. 16 octets hold any IPv4 text, 46 any IPv6 text.
 * @param size     size of text in octets.
 * @return text; or null when the family is neither of the two, when address or text is null, or when the text
 * with its zero does not fit. After null the contents of text mean nothing.
 */
ZRSOCKET_API const char* OM_inet_ntop(int family, const void* address, char* text, unsigned int size);

#ifdef __cplusplus
}
#endif

#endif
