/*
 * ztutl.h - utility library of the product (libztxzu_r): exit statuses and bounded text helpers.
 */
#ifndef ZTUTL_H
#define ZTUTL_H

#include "ztsvc.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * utlMapRCTo8bit replaces a reason code by the exit status that stands for it: 0 stays 0 and
 * nothing else becomes 0; 1 to 63 stay as they are; the larger codes in use have a status of their
 * own, in the table of platform/utility/exit_status.cpp; every other code is 255.
 */
ZT_EXPORT void utlMapRCTo8bit(int32_t *reasonCode);

/* utlCopyBounded copies a text into a field of `capacity` bytes and fills the rest of the field
 * with zeros. A text of `capacity` characters or more fills the field without a terminator. */
ZT_EXPORT void utlCopyBounded(char *field, const char *text, size_t capacity);

/* utlAppendBounded appends at most `limit` characters of a text and a terminator to `buffer`, which
 * must have room for them. */
ZT_EXPORT void utlAppendBounded(char *buffer, const char *text, size_t limit);

/* utlUpperCase turns at most `limit` characters of a text to upper case in place (toupper). */
ZT_EXPORT void utlUpperCase(char *text, size_t limit);

#ifdef __cplusplus
}
#endif

#endif
