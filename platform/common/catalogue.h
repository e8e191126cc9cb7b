/*
 * catalogue.h - the message catalogue, private to the common services.
 */
#ifndef ZTM_CATALOGUE_H
#define ZTM_CATALOGUE_H

#include <cstdint>
#include <span>

namespace ztm {

struct CatalogueEntry {
    uint32_t number; // of enum SvcMessageNumber
    const char *text;
};

// The whole catalogue, in the order of the low 16 bits.
[[nodiscard]] std::span<const CatalogueEntry> messageCatalogue();

} // namespace ztm

#endif
