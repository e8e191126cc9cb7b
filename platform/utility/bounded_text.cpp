/*
 * bounded_text.cpp - bounded text helpers, the only ones of the product.
 */
#include "ztutl.h"

#include <cctype>
#include <cstring>

void utlCopyBounded(char *field, const char *text, size_t capacity) {
    const size_t length = strnlen(text, capacity);
    memcpy(field, text, length);
    memset(field + length, 0, capacity - length);
}

void utlAppendBounded(char *buffer, const char *text, size_t limit) {
    const size_t length = strnlen(text, limit);
    char *const end = buffer + strlen(buffer);
    memcpy(end, text, length);
    end[length] = '\0';
}

void utlUpperCase(char *text, size_t limit) {
    for (size_t i = 0; i < limit && text[i] != '\0'; ++i)
        text[i] = static_cast<char>(toupper(static_cast<unsigned char>(text[i])));
}
