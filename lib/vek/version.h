/*
 * version.h - the version identification of each module; private to the library.
 */
#ifndef VERSION_H
#define VERSION_H

namespace vek {

const char *sztucGetVersion();
const char *sztouGetVersion();
const char *SztuListGetVersion();

} // namespace vek

#endif
