/*
 * exit_status.cpp - the exit status of every reason code of the command.
 *
 * Codes from 1 to 63 are their own status; the table holds the larger ones. The last digits of a
 * status recall those of its code where they can.
 */
#include "ztpbe.h"
#include "ztutl.h"

namespace ztm {

namespace {

constexpr uint32_t LARGEST_PLAIN_CODE = 63;
constexpr int32_t STATUS_OF_UNKNOWN_CODE = 255;

struct ExitStatus {
    uint32_t reasonCode;
    int32_t status;
};

constexpr ExitStatus EXIT_STATUSES[] = {
    {0x20008066, 66}, // initialisation, passed through
    {0x20806301, 67}, // initialisation, reason recorded in the process anchor
    {0x20006327, 68}, // initialisation, reason recorded in the process anchor
    {2071, 71},       // no memory during initialisation
    {2195, 95},       // initialisation failed otherwise
    {SVC_PBE_KEY_FILE_UNREADABLE, 81},
    {SVC_PBE_KEY_FILE_BAD_LENGTH, 82},
    {SVC_PBE_MALFORMED_TEXT, 83},
    {SVC_PBE_AUTHENTICATION_FAILED, 84},
    {SVC_PBE_CLEAR_TEXT_LENGTH, 85},
    {SVC_PBE_UNSUPPORTED_ALGORITHM, 86},
    {SVC_PBE_BAD_ARGUMENTS, 87},
    {SVC_PBE_CRYPTO_FAILED, 88},
    {SVC_PBE_FIPS_NOT_AVAILABLE, 89},
    {SVC_PBE_NO_STORAGE, 90},
    {0xFFFFFFFF, 99}, // -1: the final rename failed
};

int32_t statusOf(uint32_t reasonCode) {
    if (reasonCode <= LARGEST_PLAIN_CODE)
        return static_cast<int32_t>(reasonCode);
    for (const ExitStatus &entry : EXIT_STATUSES)
        if (entry.reasonCode == reasonCode)
            return entry.status;
    return STATUS_OF_UNKNOWN_CODE;
}

} // namespace

} // namespace ztm

void utlMapRCTo8bit(int32_t *reasonCode) {
    *reasonCode = ztm::statusOf(static_cast<uint32_t>(*reasonCode));
}
