/*
 * version.cpp - the version identification of each module, for whoever looks at a binary with
 * `what` or `strings`. Nothing calls these functions.
 */
#include "version.h"

namespace vek {

const char *sztucGetVersion() {
    return "@(#) lib/vek/sztucona " VEK_VERSION;
}

const char *sztouGetVersion() {
    return "@(#) lib/vek/sztoumaa " VEK_VERSION;
}

const char *SztuListGetVersion() {
    return "@(#) lib/vek/sztulisa " VEK_VERSION;
}

} // namespace vek
