/*
 * load.h - loads one section of keystore.conf; private to the readers.
 */
#ifndef SZTOUMAA_LOAD_H
#define SZTOUMAA_LOAD_H

#include "ztvek.h"

namespace vek {

/*
 * loadSection locates (path null), reads and parses the file and keeps the items of one section,
 * keys without their prefix.
 *  list          must hold null or a list on entry, which is released; receives the section list,
 *                the caller's, released with sztucFreeConfigList, or null on every result but 0.
 *  reportErrors  1: show messages (while sztUseLogErrorMessage is not 0).
 * Result: 0, 2 (empty section name), 7, 11, 12, 15.
 */
[[nodiscard]] uint32_t loadSection(const char *path, SztuList **list, const char *section,
                                   int32_t reportErrors);

} // namespace vek

#endif
