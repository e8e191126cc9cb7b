/*
 * vekversion.h - the version identification of each module; private to the library.
 */
#ifndef VEKVERSION_H
#define VEKVERSION_H

const char *sztucGetVersion();
const char *sztouGetVersion();
const char *SztuListGetVersion();

#endif
