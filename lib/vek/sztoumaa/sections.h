/*
 * sections.h - the reader of each section, key by key into its record; private to the library and
 * the programs. `reading` has its section list. The names of sections and keys stand in shared.h.
 */
#ifndef SZTOUMAA_SECTIONS_H
#define SZTOUMAA_SECTIONS_H

#include "sztoumaa/section_reading.h"

namespace vek {

void readCms(Reading &reading, SztouKsConfig *config);
void readChannelCms(Reading &reading, SztouKsConfig *config, const char *channelName);
void readOcsp(Reading &reading, SztouOcspConfig *config);
void readPem(Reading &reading, SztouPemConfig *config);
void readChannelPem(Reading &reading, SztouPemConfig *config, const char *channelName);
void readPkcs11(Reading &reading, SztouPkcs11Config *config);
void readCrl(Reading &reading, SztouCrlConfig *config, int32_t fips);

} // namespace vek

#endif
