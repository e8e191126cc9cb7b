/*
 * version.h - the version identification of each module; private to the library.
 */
#ifndef VERSION_H
#define VERSION_H

const char *sztucGetVersion();
const char *sztouGetVersion();
const char *SztuListGetVersion();

#endif
