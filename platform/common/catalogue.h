/*
 * catalogue.h - the message catalogue, private to the common services.
 */
#ifndef CATALOGUE_H
#define CATALOGUE_H

#include <cstdint>
#include <span>

struct CatalogueEntry {
    uint32_t number; // of enum SvcMessageNumber
    const char *text;
};

// The whole catalogue, in the order of the low 16 bits.
[[nodiscard]] std::span<const CatalogueEntry> messageCatalogue();

#endif
